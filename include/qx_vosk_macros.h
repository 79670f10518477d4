/*
 * qx_vosk_macros.h - recordings as one short line, for C and C++.
 *
 * A source file says once who it is, and every recording in it is then complete:
 *
 *   #define VK_PRODUCT "orders"
 *   #define VK_SOURCE_VERSION "1.4"
 *   #define VK_RESOURCE "orderd"
 *   #include <qx_vosk_macros.h>
 *
 *   VK_PUSH(&eid, NULL, strerror(errno), "cannot open %s", path);
 *
 * Source file and line are those of the call. What is not defined is left out of the record, and the library says so by
 * its attentions:
 *   VK_PRODUCT         the product that the source file belongs to
 *   VK_SOURCE_VERSION  the source file's version
 *   VK_RESOURCE        the reporting resource; for the System Log also the name of the sender
 *   VK_CATALOGUE       the message catalogue of the descriptions
 * Every macro returns what the routine behind it returns; see qx_vosk.h. The last arguments are a printf format and its
 * values. They are checked at compile time where VK_CHECK_FORMAT is defined before the first of these headers.
 */
#ifndef QX_VOSK_MACROS_H
#define QX_VOSK_MACROS_H

#include <qx_vosk.h>
#include <stddef.h>

#ifndef VK_PRODUCT
#define VK_PRODUCT NULL
#endif
#ifndef VK_SOURCE_VERSION
#define VK_SOURCE_VERSION NULL
#endif
#ifndef VK_RESOURCE
#define VK_RESOURCE NULL
#endif
#ifndef VK_CATALOGUE
#define VK_CATALOGUE NULL
#endif

/* Who records, and where. */
#define VK_SOURCE VK_RESOURCE, VK_PRODUCT, __FILE__, VK_SOURCE_VERSION, __LINE__, 0

/* VK_PUSH(eid, cause, details, format, ...) records into the Error Stack, with a text of details or NULL. */
#define VK_PUSH(eid, cause, details, ...) \
  vk_push_stack_1(eid, cause, VK_SOURCE, details, NULL, VK_CATALOGUE, -1, -1, __VA_ARGS__)

/* VK_PUSH_FILE(eid, cause, file, format, ...) copies the file `file` as the details. */
#define VK_PUSH_FILE(eid, cause, file, ...) \
  vk_push_stack_1(eid, cause, VK_SOURCE, NULL, file, VK_CATALOGUE, -1, -1, __VA_ARGS__)

/*
 * VK_PUSH_MESSAGE(eid, cause, details, set, number, format, ...) names the message of VK_CATALOGUE that the reader sees
 * in his own language; the format stands in where the catalogue is missing.
 */
#define VK_PUSH_MESSAGE(eid, cause, details, set, number, ...) \
  vk_push_stack_1(eid, cause, VK_SOURCE, details, NULL, VK_CATALOGUE, set, number, __VA_ARGS__)

/*
 * VK_LOG_ERROR(eid, cause, event_type, details, format, ...) records in the System Log. `details` is a text that tells
 * the library that there are details, or NULL; the record itself holds the message only.
 */
#define VK_LOG_ERROR(eid, cause, event_type, details, ...) \
  vk_log_error_1(eid, cause, VK_SOURCE, event_type, 0, details, -1, NULL, __VA_ARGS__)

/* VK_LOG_FILE(eid, cause, event_type, file, format, ...) copies the file `file` as the details. */
#define VK_LOG_FILE(eid, cause, event_type, file, ...) \
  vk_log_error_1(eid, cause, VK_SOURCE, event_type, 0, NULL, 0, file, __VA_ARGS__)

#endif
