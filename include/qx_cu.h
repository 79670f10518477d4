/*
 * qx_cu.h - libqx_cu, the common-utilities library that libqx_vosk reports through.
 *
 * libqx_vosk needs exactly five routines of it: cu_set_error_1, cu_set_no_error_1, cu_set_error_args_1,
 * cu_rel_error_args_1 and cu_get_proc_info_1. Another library with these five can take its place. The routines that
 * read the current error back are for programs and tools.
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

/* The library is built with everything hidden but this. */
#ifdef __GNUC__
#pragma GCC visibility push(default)
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
 * cu_set_error_1 records the calling thread's current error and returns `id`. `zero` is always 0. The message is the
 * one of `number` in `set` of `catalogue`, in the user's language where the catalogue is installed and its text takes
 * the inserts that `default_text` takes (their number and types); otherwise `default_text` itself. The catalogue is
 * looked for with catopen, in the locale that the program has set and then by the environment; the locale is never
 * changed.
 *
 * The inserts follow `default_text`, as its conversions say: printf's, plain or positional, with flags only where
 * printf defines them, but not %n and not those of wide characters; at most 64 inserts, numbers in the text up to
 * 65535. A text that has any other '%' takes no inserts and is kept as it stands; one that is formatted already must
 * have its '%' doubled to be kept unchanged in every case. A null text is empty, and so is a null string among the
 * inserts. The texts may be those of the current error. At least 4096 bytes of the message are kept, and 255 of the
 * catalogue's name. errno is left as it was.
 */
int cu_set_error_1(int id, int zero, const char *catalogue, int set, int number, const char *default_text, ...);

/*
 * cu_set_no_error_1 clears the calling thread's current error and returns 0.
 */
int cu_set_no_error_1(void);

/*
 * cu_set_error_args_1 takes from `args` the arguments that the conversions of `default_message` stand for and stores
 * them as an array behind `out`, by position, and their number behind `count`. The conversions are those of
 * cu_set_error_1; a
 * '*' is an argument, too, and "%%" and "%m" take none. A null message, or one without arguments, gives a null array
 * and 0. Returns 0; or -1 when plain and positional conversions are mixed, a position is missing or used with two
 * types, a conversion is unknown or memory is short: then `count` holds the number of arguments detected before the
 * fault and `out` a null pointer. Also -1, with nothing stored, if `out` or `count` is null. `args` is as after a
 * va_copy of it was used: the caller ends it with va_end. Strings are not copied; they must live until the array is
 * released with cu_rel_error_args_1.
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
  int id; /* 0 when there is none */
  int set;
  int number;
  const char *catalogue; /* never null */
  const char *text;      /* the message with its inserts, never null */
} cu_error_t;

/*
 * cu_get_error_1 fills `error` with the calling thread's current error and returns its id, 0 when there is none.
 */
int cu_get_error_1(cu_error_t *error);

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
