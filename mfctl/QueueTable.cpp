#include "QueueTable.h"

#include "Table.h"

void printQueues(const std::vector<JsonView>& queues, const Screen& screen) {
    using Cell = base::Table::Cell;
    base::Table wide({"queue", "depth", "capacity", "highest", "messages", "bytes", "waits", "waiting",
                      "holders", "receiver"});
    base::Table narrow({"queue", "depth", "capacity", "highest", "messages", "waiting", "receiver"});
    for (const JsonView& queue : queues) {
        const std::string name = queue.text("name");
        const std::string depth = queue.text("depth");
        const std::string capacity = queue.text("capacity");
        const std::string highest = queue.text("highWater");
        const std::string messages = queue.text("messages");
        const std::int64_t waitingForMs = queue.number("waitingForMs");
        const Cell waiting = waitingForMs > 0
                                 ? Cell(std::to_string(waitingForMs) + " ms", base::Table::EColour::Warning)
                                 : Cell("-");
        const char* receiver = queue.flag("receiver") ? "yes" : "no";
        wide.addRow({name, depth, capacity, highest, messages, queue.text("bytes"), queue.text("waits"),
                     waiting, queue.text("holders"), receiver});
        narrow.addRow({name, depth, capacity, highest, messages, waiting, receiver});
    }
    narrow.shorten({0});
    const bool hasRoom = screen.look.width == 0 || wide.width() <= screen.look.width;
    (hasRoom ? wide : narrow).print(screen.out, screen.look);
}
