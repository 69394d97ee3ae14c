/* A driver in C: answers ADD a=1 b=2 with the state SUM and the event ADDED, and CRASH by its death. */
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "mfdqueue.h"

static void say(mfdqueue* queue, const char* code, mfdqueue_field first, mfdqueue_field second) {
    const mfdqueue_field fields[] = {first, second};
    char message[MFDQUEUE_MESSAGE];
    const int length = mfdqueue_encode(code, fields, 2, message, sizeof message);
    if (length < 0 || mfdqueue_send(queue, message, (size_t)length, 10000) != MFDQUEUE_DONE)
        mfdqueue_log(2, mfdqueue_error());
}

static void sendFid(mfdqueue* queue, const mfdqueue_field* fields, int count) {
    if (strcmp(fields[0].text, "CRASH") == 0)
        raise(SIGSEGV);
    if (strcmp(fields[0].text, "ADD") != 0 || count != 5) {
        mfdqueue_log(3, "known is ADD with two numbers");
        return;
    }
    say(queue, "SETVAI", mfdqueue_text("SUM"), mfdqueue_int(atoi(fields[2].text) + atoi(fields[4].text)));
    say(queue, "TRIGGR", mfdqueue_text("ADDED"), mfdqueue_text(mfdqueue_driver_id(queue)));
}

int main(int argc, char** argv) {
    mfdqueue_field fields[MFDQUEUE_FIELDS];
    char texts[MFDQUEUE_MESSAGE];
    char message[MFDQUEUE_MESSAGE];
    char code[7];
    mfdqueue* queue = argc == 2 ? mfdqueue_open(argv[1]) : NULL;
    int length = 0;
    if (!queue) {
        fprintf(stderr, "no queues: %s\n", mfdqueue_error());
        return 1;
    }
    while ((length = mfdqueue_receive(queue, message, sizeof message, -1)) > 0) {
        const int count = mfdqueue_decode(message, (size_t)length, code, fields, MFDQUEUE_FIELDS, texts);
        if (count >= 0 && strcmp(code, "DEINIT") == 0)
            break;
        if (count >= 0 && strcmp(code, "INTCMP") == 0)
            say(queue, "SETVAL", mfdqueue_text("LANGUAGE"), mfdqueue_text("C"));
        if (count >= 0 && strcmp(code, "SNDFDP") == 0)
            sendFid(queue, fields, count);
    }
    mfdqueue_log(4, "stopped in order");
    mfdqueue_close(queue);
    return 0;
}
