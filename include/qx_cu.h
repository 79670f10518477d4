/*
 * qx_cu.h - libqx_cu, the common-utilities library that libqx_vosk reports through.
 *
 * libqx_vosk needs exactly five routines of it: cu_set_error_1, cu_set_no_error_1, cu_set_error_args_1,
 * cu_rel_error_args_1 and cu_get_proc_info_1. Another library with these five can take its place. The routines that read
 * the current error back are for programs and tools.
 *
 * Everything here is kept per thread: one thread never sees another's error. Nothing here is safe in a signal handler.
 */
#ifndef QX_CU_H
#define QX_CU_H

#include <stdarg.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The types of a message argument, as stored in cu_arg_t. They say which member of `value` holds the argument.
 */
#define CU_ARG_INT 1     /* value.i64, from int, short or char (signed conversions) */
#define CU_ARG_UINT 2    /* value.u64, from unsigned int and smaller (unsigned conversions) */
#define CU_ARG_LONG 3    /* value.i64, from long, long long, intmax_t, ptrdiff_t or ssize_t */
#define CU_ARG_ULONG 4   /* value.u64, from their unsigned forms and size_t */
#define CU_ARG_STRING 5  /* value.string; a null pointer is possible */
#define CU_ARG_DOUBLE 6  /* value.real; a long double is narrowed */
#define CU_ARG_POINTER 7 /* value.pointer */
#define CU_ARG_CHAR 8    /* value.i64, from %c */

typedef struct cu_arg {
  int type;
  union {
    int64_t i64;
    uint64_t u64;
    double real;
    const char *string; /* the caller's own string, not a copy */
    const void *pointer;
  } value; /* 8 bytes */
} cu_arg_t;

typedef struct cu_proc_info {
  int pid;
  char command[64]; /* the command name as the kernel reports it, zero-terminated */
} cu_proc_info_t;

/*
 * cu_set_error_1 records the calling thread's current error and returns `id`. `zero` is always 0. The message is the one
 * of `number` in `set` of `catalogue`, in the user's language where the catalogue is installed and its text takes the
 * inserts that `default_text` takes (their number and types); otherwise `default_text` itself. The inserts follow
 * `default_text`, as its conversions say. A null text is empty.
 */
int cu_set_error_1(int id, int zero, const char *catalogue, int set, int number, const char *default_text, ...);

/*
 * cu_set_no_error_1 clears the calling thread's current error and returns 0.
 */
int cu_set_no_error_1(void);

/*
 * cu_set_error_args_1 takes from `args` the arguments that the printf conversions of `default_message` stand for, plain
 * ("%s") or positional ("%1$s"), and stores them as an array behind `out` and their number behind `count`. `args` is
 * consumed. A null message, or one without conversions, gives a null array and 0. Returns 0; or -1 when plain and
 * positional conversions are mixed, positions are missing, a conversion is unknown or memory is short: then `count`
 * holds the number of conversions detected so far and `out` a null pointer.
 * Release the array with cu_rel_error_args_1.
 */
int cu_set_error_args_1(const char *default_message, va_list args, cu_arg_t **out, int *count);

/*
 * cu_rel_error_args_1 releases what cu_set_error_args_1 returned; a null array is accepted. Returns 0.
 */
int cu_rel_error_args_1(cu_arg_t *args, int count);

/*
 * cu_get_proc_info_1 fills `record` with what the kernel says of process `pid`. Returns 1, or 0 with errno set when
 * there is no such process or it cannot be read; the record is then left as it was.
 */
int cu_get_proc_info_1(cu_proc_info_t *record, int pid);

/*
 * The calling thread's current error. The strings stay valid until the thread's next cu_set_error_1 or
 * cu_set_no_error_1.
 */
typedef struct cu_error {
  int id;                /* 0 when there is none */
  int set;
  int number;
  const char *catalogue; /* never null */
  const char *text;      /* the message with its inserts, never null */
} cu_error_t;

/*
 * cu_get_error_1 fills `error` with the calling thread's current error and returns its id, 0 when there is none.
 */
int cu_get_error_1(cu_error_t *error);

#ifdef __cplusplus
}
#endif

#endif
