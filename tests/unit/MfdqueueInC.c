#include "MfdqueueInC.h"

#include <stdio.h>
#include <string.h>

#include "mfdqueue.h"

#define COUNT(fields) (sizeof(fields) / sizeof(fields)[0])

int messageInC(const char* frame, void* buffer, size_t size) {
    const mfdqueue_field text[] = {mfdqueue_text("MODE"), mfdqueue_text("auto")};
    const mfdqueue_field number[] = {mfdqueue_text("TEMP"), mfdqueue_float(21.5F)};
    const mfdqueue_field whole[] = {mfdqueue_text("A"), mfdqueue_int(-2)};
    const mfdqueue_field truth[] = {mfdqueue_text("DOOR"), mfdqueue_bool(7)};
    const mfdqueue_field event[] = {mfdqueue_text("ALARM"), mfdqueue_text("hot")};
    const mfdqueue_field command[] = {mfdqueue_text("reloadDriver"), mfdqueue_text("AXIS2")};
    const mfdqueue_field fid[] = {mfdqueue_text("PANEL.SHOW"), mfdqueue_text("page"), mfdqueue_text("2")};
    const mfdqueue_field bare[] = {mfdqueue_text("PANEL.CLEAR")};
    if (strcmp(frame, "SETVAL") == 0)
        return mfdqueue_encode("SETVAL", text, COUNT(text), buffer, size);
    if (strcmp(frame, "SETVAF") == 0)
        return mfdqueue_encode("SETVAF", number, COUNT(number), buffer, size);
    if (strcmp(frame, "SETVAI-negative") == 0)
        return mfdqueue_encode("SETVAI", whole, COUNT(whole), buffer, size);
    if (strcmp(frame, "SETVAB") == 0)
        return mfdqueue_encode("SETVAB", truth, COUNT(truth), buffer, size);
    if (strcmp(frame, "UNSVAL") == 0)
        return mfdqueue_encode("UNSVAL", truth, 1, buffer, size);
    if (strcmp(frame, "TRIGGR") == 0)
        return mfdqueue_encode("TRIGGR", event, COUNT(event), buffer, size);
    if (strcmp(frame, "SYSCMD") == 0)
        return mfdqueue_encode("SYSCMD", command, COUNT(command), buffer, size);
    if (strcmp(frame, "DSPFID") == 0)
        return mfdqueue_encode("DSPFID", fid, COUNT(fid), buffer, size);
    if (strcmp(frame, "DSPFID-no-parameters") == 0)
        return mfdqueue_encode("DSPFID", bare, COUNT(bare), buffer, size);
    return -100;
}

static void add(char* told, size_t size, const char* text) {
    strncat(told, text, size - strlen(told) - 1);
}

int readInC(const void* message, size_t length, char* told, size_t size) {
    mfdqueue_field fields[MFDQUEUE_FIELDS];
    char texts[MFDQUEUE_MESSAGE];
    char code[7];
    const int count = mfdqueue_decode(message, length, code, fields, COUNT(fields), texts);
    told[0] = '\0';
    add(told, size, code);
    for (int index = 0; index < count; ++index) {
        char number[64] = "";
        const mfdqueue_field* field = &fields[index];
        add(told, size, " ");
        if (field->kind == MFDQUEUE_TEXT) {
            add(told, size, "'");
            add(told, size, field->text);
            add(told, size, "'");
            continue;
        }
        if (field->kind == MFDQUEUE_INT)
            snprintf(number, sizeof number, "%d", (int)field->integer);
        else if (field->kind == MFDQUEUE_FLOAT)
            snprintf(number, sizeof number, "%g", (double)field->number);
        else
            snprintf(number, sizeof number, "%s", field->integer ? "true" : "false");
        add(told, size, number);
    }
    return count;
}
