#include "CommandHints.h"

#include <gtest/gtest.h>

TEST(CommandHints, WordOfAnotherConsoleIsAnsweredWithTheCommandHere) {
    EXPECT_EQ("there is no command exit; quit stops all drivers and ends the host", commandHint("exit"));
    EXPECT_EQ("there is no command ?; help lists the commands", commandHint("?"));
    for (const char* word : {"status", "list", "ls", "ps"})
        EXPECT_EQ("there is no command " + std::string(word) +
                      "; drivers shows how the drivers are, drivers ID all of one",
                  commandHint(word));
    EXPECT_EQ("there is no command restart; reloadDriver ID stops a driver and starts it again",
              commandHint("restart"));
    EXPECT_EQ("there is no command stop; stopDriver ID stops a driver and keeps it so; quit ends the host",
              commandHint("stop"));
    EXPECT_EQ("there is no command start; startDriver ID starts a driver that was stopped or has ended",
              commandHint("start"));
    EXPECT_EQ(
        "there is no command log; the log goes to standard error, and with --log-file into a file; mfctl log "
        "shows it",
        commandHint("log"));
    EXPECT_EQ("there is no command send; sendFID ID.FUNCTION NAME=VALUE ... sends a function ID",
              commandHint("send"));
    EXPECT_EQ(
        "there is no command set; setStateValue KEY VALUE sets a value, unsetStateValue KEY takes it away",
        commandHint("set"));
}

TEST(CommandHints, OtherWordsHaveNone) {
    EXPECT_EQ("", commandHint(""));
    EXPECT_EQ("", commandHint("nonsense"));
    EXPECT_EQ("", commandHint("EXIT"));
}
