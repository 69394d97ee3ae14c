#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A message as a driver in C makes it, named as its golden frame. Its length, -100 for a name that is not
 * here. */
int messageInC(const char* frame, void* buffer, size_t size);

/* What mfdqueue_decode() tells of a message, as a driver in C sees it: "CODE 'text' 3 2.5 true". Returns its
 * result. */
int readInC(const void* message, size_t length, char* told, size_t size);

#ifdef __cplusplus
}
#endif
