#pragma once

/* A driver process in any language that calls C: the two queues between it and its host, and the messages in
 * them (docs/protocol.md). docs/foreign-drivers.md tells what a driver does with it.
 *
 * A process is one driver: it holds at most one mfdqueue at a time. Texts are bytes, UTF-8 by custom; those
 * that are passed in end with a zero byte unless a length says otherwise. No function throws, changes a
 * signal's disposition or ends the process. The library starts a thread for its log and one that waits for
 * the host's end; it is never unloaded.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif
#pragma GCC visibility push(default)

/* The most bytes of a message, and of all its texts with their zero bytes. */
#define MFDQUEUE_MESSAGE 1024
/* The most fields of a message: a name and 255 parameters of two texts each. */
#define MFDQUEUE_FIELDS 511

/* What a function returns instead of a length. mfdqueue_error() has the words. */
enum {
    MFDQUEUE_DONE = 0,       /* done */
    MFDQUEUE_NOTHING = 0,    /* nothing came within the time */
    MFDQUEUE_ENDED = -1,     /* the host has let go of the queues: the driver stops */
    MFDQUEUE_REFUSED = -2,   /* the message was not sent: no room within the time, or nobody takes it */
    MFDQUEUE_UNKNOWN = -3,   /* no code of the protocol; a driver passes such a message over */
    MFDQUEUE_MALFORMED = -4, /* not the fields of the code, a text too long, or too little room */
    MFDQUEUE_BROKEN = -5     /* the queue is damaged, or there is none: the driver stops */
};

/* What a field is. */
enum { MFDQUEUE_TEXT = 1, MFDQUEUE_INT = 2, MFDQUEUE_FLOAT = 3, MFDQUEUE_BOOL = 4 };

/* One field of a message. Parameters are two texts each, name and value. */
typedef struct mfdqueue_field {
    int32_t kind;     /* MFDQUEUE_TEXT and so on */
    int32_t integer;  /* of an int; of a bool 0 or 1 */
    float number;     /* of a float */
    uint32_t length;  /* of a text, in bytes without the zero byte */
    const char* text; /* of a text */
} mfdqueue_field;

/* Both queues of one driver. */
typedef struct mfdqueue mfdqueue;

/* Opens the queues that a host has made for the driver of that ID, in the directory that MFD_QUEUE_DIR names.
 * Once at start, and once more after mfdqueue_close(), by the main thread. The first call also opens the log
 * of the process on standard error, with the driver ID in each line and the level that MFD_LOG_LEVEL names (1
 * to 5, else 4). Null, at once: there is no such queue, its host has ended, it was made for a newer process,
 * the process holds queues already or has had another driver ID. */
mfdqueue* mfdqueue_open(const char* driver_id);

/* The next message of the host, into the buffer; at most one thread at a time. Waits at most so many
 * milliseconds, 0 not at all, a negative time as long as the host holds the queues. Returns the message's
 * length in bytes; of one that is longer than the buffer its first part is there. MFDQUEUE_NOTHING,
 * MFDQUEUE_ENDED once everything that the host had sent was received, or MFDQUEUE_BROKEN. */
int mfdqueue_receive(mfdqueue* queue, void* buffer, size_t size, int milliseconds);

/* Sends one message to the host. Any thread. Waits for room at most so many milliseconds, 0 not at all, a
 * negative time as long as the host takes messages. MFDQUEUE_DONE, or MFDQUEUE_REFUSED; the queue takes
 * further messages then, unless the host is gone. MFDQUEUE_MALFORMED when it is longer than MFDQUEUE_MESSAGE
 * or empty. */
int mfdqueue_send(mfdqueue* queue, const void* message, size_t length, int milliseconds);

/* The ID that the queues were opened with. Any thread; valid until mfdqueue_close(). Empty of null. */
const char* mfdqueue_driver_id(const mfdqueue* queue);

/* Lets go of both queues and forgets the object; null does nothing. The main thread, when no other one is in
 * a call with it. A process that goes on afterwards may open the queues that the host makes at the next
 * reload. */
void mfdqueue_close(mfdqueue* queue);

/* Why the last call on this thread that failed did so, in words that end with no full stop. Never null; valid
 * until the next call on this thread. */
const char* mfdqueue_error(void);

/* One line of the process's log: level 1 critical, 2 error, 3 warning, 4 info, 5 trace; another level counts
 * as 4. Any thread, without waiting. Before the first mfdqueue_open() lines up to level 3 go to standard
 * error. */
void mfdqueue_log(int level, const char* text);

/* Puts a message together: code of six letters, fields in the order of docs/protocol.md. Any thread. Returns
 * its length in bytes. MFDQUEUE_UNKNOWN or MFDQUEUE_MALFORMED, and mfdqueue_error() says which field should
 * be what. Parameters that a message has no room for, or with a text of more than 255 bytes, are left out, as
 * a log line says. */
int mfdqueue_encode(const char* code, const mfdqueue_field* fields, size_t count, void* buffer, size_t size);

/* Takes a message apart. Any thread. The code and a zero byte go to code (7 bytes), the fields to fields,
 * their texts, each with a zero byte at its end, to texts (MFDQUEUE_MESSAGE bytes). Returns the number of
 * fields. What a short message lacks is zero or empty, as for every driver. MFDQUEUE_UNKNOWN, with the code
 * where there are six bytes, or MFDQUEUE_MALFORMED when there are more fields than most. */
int mfdqueue_decode(const void* message, size_t length, char* code, mfdqueue_field* fields, size_t most,
                    char* texts);

#pragma GCC visibility pop

/* Fields for mfdqueue_encode(). */
static inline mfdqueue_field mfdqueue_text(const char* text) {
    mfdqueue_field field = {MFDQUEUE_TEXT, 0, 0, 0, text};
    while (text[field.length])
        ++field.length;
    return field;
}
static inline mfdqueue_field mfdqueue_int(int32_t value) {
    mfdqueue_field field = {MFDQUEUE_INT, value, 0, 0, NULL};
    return field;
}
static inline mfdqueue_field mfdqueue_float(float value) {
    mfdqueue_field field = {MFDQUEUE_FLOAT, 0, value, 0, NULL};
    return field;
}
static inline mfdqueue_field mfdqueue_bool(int value) {
    mfdqueue_field field = {MFDQUEUE_BOOL, value != 0, 0, 0, NULL};
    return field;
}

#ifdef __cplusplus
}
#endif
