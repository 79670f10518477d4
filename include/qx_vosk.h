/*
 * qx_vosk.h - libqx_vosk records a failure at the moment it is first detected.
 *
 * An incident goes to one of two places: the VOSK Error Stack, a small circular file that a process tree shares, or the
 * System Log. Every recording returns a VOSK Error Identifier, 42 printable characters that say where, when and on
 * which node the record was made; the next process can refer back to it.
 *
 *   vk_eid_t eid;
 *   vk_init_1(VK_STACK_CREAT);
 *   vk_push_stack_1(&eid, NULL, "mydaemon", "myproduct", __FILE__, "1.0", __LINE__, 0, "details", NULL,
 *                   "my.cat", 1, 7, "cannot open %s", path);
 *   vk_display_fid_1(eid);
 *
 * Results. Utility routines return 0 or a negative VOSK_ code. Routines that end in _1 and report through libqx_cu
 * (vk_init_*, vk_test_stack_*, vk_push_stack_*, vk_log_error_1, vk_display_fid_*) return the identifier of the last
 * error or attention that they reported, 0 when there was none; the reported message is the thread's current error of
 * libqx_cu.
 *
 * Tracing. Routines whose first two arguments are `trace_on` and `trace_path` write to the trace file `trace_path` when
 * `trace_on` is exactly 1; `trace_path` may be null otherwise. The others that trace decide for themselves, once per
 * call, by the environment variable VOSKDEBUG.
 *
 * Threads and signals. Nothing is kept between calls and all buffers are local, but files are locked with lockf, which
 * keeps processes apart and not the threads of one process: callers that record from several threads must serialise
 * their calls. The environment routines change the environment of the whole process: call them once, early. No routine
 * is safe in a signal handler, except where its comment says so.
 *
 * Null strings. A null string argument is an empty text unless the routine's comment gives it a result of its own.
 */
#ifndef QX_VOSK_H
#define QX_VOSK_H

#include <nl_types.h>
#include <stdint.h>
#include <sys/time.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The library is built with everything hidden but this. */
#ifdef __GNUC__
#pragma GCC visibility push(default)
#endif

/*
 * printf formats of callers may be positional ("%1$s") or empty, which strict compilers warn of; so they are checked
 * only where the caller defines VK_CHECK_FORMAT before including this header.
 */
#if defined(VK_CHECK_FORMAT) && defined(__GNUC__)
#define VK_PRINTF_FORMAT(format_index, first_argument) __attribute__((format(printf, format_index, first_argument)))
#else
#define VK_PRINTF_FORMAT(format_index, first_argument)
#endif

/* ---- Result codes of the utility routines ---- */

#define VOSK_SUCCESS 0
#define VOSK_FAILURE (-1)            /* unexpected system error */
#define VOSK_INV_PARAM1 (-2)         /* first parameter invalid */
#define VOSK_INV_PARAM2 (-3)         /* second parameter invalid */
#define VOSK_INV_PARAM3 (-4)         /* third parameter invalid */
#define VOSK_INV_PARAM4 (-5)         /* fourth parameter invalid */
#define VOSK_INV_PARAM5 (-6)         /* fifth parameter invalid */
#define VOSK_INV_PARAM6 (-7)         /* sixth parameter invalid */
#define VOSK_INV_PARAM7 (-8)         /* seventh parameter invalid */
#define VOSK_INV_PARAM8 (-9)         /* eighth parameter invalid */
#define VOSK_INV_PARAM9 (-10)        /* ninth parameter invalid */
#define VOSK_INV_PARAMCOMBO (-11)    /* parameters that may not be combined */
#define VOSK_DIR_ACCESS (-13)        /* a directory cannot be searched */
#define VOSK_DIR_MISSING (-14)       /* a directory or path component is missing or is not a directory */
#define VOSK_STALE_FS (-15)          /* stale remote file system */
#define VOSK_PERM_DENIED (-16)       /* creation, opening for writing or a permission change refused */
#define VOSK_NOT_DIR (-17)           /* exists but is not a directory */
#define VOSK_NO_SPACE (-18)          /* five percent of the file system cannot be left free */
#define VOSK_NO_RESOURCE (-20)       /* open-file table full, file size limit or disk quota */
#define VOSK_LINK_LOOP (-21)         /* too many symbolic links */
#define VOSK_NAME_TOO_LONG (-22)     /* path name too long */
#define VOSK_IS_DIR (-23)            /* the name is a directory */
#define VOSK_FILE_MISSING (-24)      /* the file does not exist */
#define VOSK_FILE_ACCESS (-25)       /* the file cannot be accessed */
#define VOSK_FILE_CORRUPT (-26)      /* contents not as expected, or a read, seek or write failed */
#define VOSK_FILE_EXIST (-27)        /* the file already exists */
#define VOSK_LOCK_FAILED (-28)       /* the lock could not be taken */
#define VOSK_UNLOCK_FAILED (-29)     /* the lock could not be released */
#define VOSK_IO_ERROR (-30)          /* input or output error while copying a file */
#define VOSK_INV_ENV (-31)           /* the VOSK Environment is not valid */
#define VOSK_INV_FID (-36)           /* not a valid VOSK Error Identifier */
#define VOSK_STACK_STEP_FAILED (-38) /* an internal step of a stack recording failed */
#define VOSK_UNSUPPORTED (-99)       /* version or feature not supported */

/* ---- Results of the reporting routines: errors ---- */

#define VK_SUCCESS 0
#define VK_INHERIT_SUCCESS 1 /* an ancestor's environment was inherited */
#define VK_UNKNOWN_OPTION 12 /* the option code is not known */
#define VK_INHERIT_INV 13    /* creation and inheritance asked for at once */
#define VK_ENV_EXIST 14      /* the process owns an environment already */
#define VK_NO_VK_ENVIR 15    /* no environment, or not the process's own */
#define VK_ENV_FAILED 16     /* the environment could not be established */
#define VK_ENV_CORRUPT 17    /* the variables contradict each other */
#define VK_NO_MEMORY 18      /* no memory for the environment's values */
/* 19: the stack directory cannot be accessed */
#define VK_STACK_ACCESS 20 /* the stack file cannot be opened or created */
/* 21: a stack file of the computed name exists already
 * 22: the stack file cannot be locked
 * 24: the stack file's control information is unusable or cannot be updated
 * 25: the stack file's name is a directory
 * 40: not enough space for a stack file */
#define VK_IO_FAILED 41 /* seeking in or writing to the stack file failed */
/* 42: stacks are disabled for this process; it is set up for the System Log only */
#define VK_UNEXPECTED 99 /* unexpected failure */

/* ---- Results of the recording routines: attentions; the record was made all the same ---- */

#define VK_DETAIL_BOTH 26      /* detail data and a detail file: the file was ignored */
#define VK_NO_EID_PTR 27       /* nowhere to return the identifier; or an identifier to display is not one */
#define VK_NO_RESOURCE_NAME 28 /* no resource name */
#define VK_NO_FILE_INFO 29     /* source file, version, product or line missing; or nothing describes the incident */
#define VK_NO_DEFAULT_MSG 30   /* no default message */
#define VK_NO_MSG_INFO 31      /* no catalogue, set or message number */
#define VK_COPY_FAILED 32      /* the detail file could not be copied */
#define VK_BAD_EVENT_TYPE 33   /* unknown event type; VOSK_DEBUG was used */
#define VK_NO_SYSLOG_MSG 34    /* no message */
#define VK_NO_DETAILS 35       /* neither detail data nor a detail file */
#define VK_BAD_DETAIL_SIZE 36  /* detail data of length 0 */
#define VK_NO_UNIQUE_EID 37    /* no identifier could be made */
#define VK_SYSLOG_FAILED 38    /* reserved: an error, no record was made */
#define VK_RECORD_TRUNCATED 44 /* the record was cut to 1024 bytes */

/* ---- Log event types, for vk_log_error_1 ---- */

#define VOSK_EMERG 0
#define VOSK_ERROR 1
#define VOSK_STATE 2
#define VOSK_PERF 3
#define VOSK_TRACE 4
#define VOSK_RECOV 5
#define VOSK_DEBUG 6

/* ---- Option codes of vk_init_1 ---- */

#define VK_LOG 0           /* System Log only: VOSKADDR and VOSKPNAME */
#define VK_STACK_CREAT 1   /* create an environment, or inherit the one that exists */
#define VK_STACK_INHERIT 2 /* inherit the environment that an ancestor passed down */

/* ---- Where an identifier's record was made ---- */

#define VK_LOCATION_TEMPLATE 0 /* under an error template */
#define VK_LOCATION_STACK 1    /* in a VOSK Error Stack file */
#define VK_LOCATION_SYSLOG 2   /* in the System Log */

/*
 * vk_eid_t - a VOSK Error Identifier: 42 printable characters and a zero byte. Positions from 1: the header character
 * (version and location), 2-7 the location field (i-node of the stack file, template or syslog selector), 8-13 seconds
 * and 14-17 microseconds of the recording, 18-41 the node's address, 42 its type ('.' IPv4, '/' IPv6). All in base 64
 * with the digits "./0-9A-Za-z", least significant first.
 */
#define VK_EID_SIZE 43
typedef char vk_eid_t[VK_EID_SIZE];

/* ---- Messages ---- */

/*
 * vk_mesgtbl_vk_lib holds the library's messages by number; they are the default texts of catalogue "vosk.cat", set 1.
 * vk_badid_vk_lib is the text for a number outside 0..44.
 */
#define VK_MESSAGE_COUNT 45
extern const char *const vk_mesgtbl_vk_lib[VK_MESSAGE_COUNT];
extern const char vk_badid_vk_lib[];

/*
 * vk_get_msgcat_name sets the process's locale from the environment (setlocale(LC_ALL, "")), copies `name` to `buffer`,
 * which needs room for it and its zero byte (callers use 4097 bytes), and returns `buffer`. The result is what
 * catopen(buffer, NL_CAT_LOCALE) wants. Not safe while other threads use the locale.
 */
char *vk_get_msgcat_name(char *buffer, const char *name);

/* ---- Environment ---- */

/*
 * vk_init_1 establishes the calling process's environment: vk_init_main_1(option_code, NULL, getpid(), 0).
 * Call it once, early, before other threads use the library.
 */
int vk_init_1(int option_code);

/*
 * vk_init_main_1 establishes an environment for process `pid` (normally the caller) under `proc_name`; a null or empty
 * name stands for the command name that the kernel reports. With `mode` 1 the variables are printed on standard output,
 * one NAME=value a line, and nothing is changed; any other mode puts them into the process's environment, where child
 * processes inherit them. Nothing touches the stack file, which the first recording creates.
 *   VK_STACK_CREAT    sets VOSKSTACK, VOSKORIG, VOSKPID, VOSKADDR and VOSKPNAME; inherits where VOSKSTACK is set
 *   VK_STACK_INHERIT  takes over an ancestor's environment: sets VOSKPID and VOSKPNAME
 *   VK_LOG            sets VOSKADDR and VOSKPNAME, for the System Log only
 * While VOSKSDISABLE is present (even empty), the first two do what VK_LOG does and give 42.
 * Codes of 4 and more are refused with 12. Negative codes are taken by their two low bits.
 * Returns 0; 1 VK_INHERIT_SUCCESS; 12 unknown option; 13 both options; 14 the process owns an environment already;
 * 15 nothing to inherit; 16 no process information or node address, or the environment cannot be changed; 17 variables
 * that contradict each other; 18 no memory; 19 the stack directory cannot be accessed; 21 the stack file exists
 * already; 42 stacks are disabled; 99 unexpected. Variables set before a failure stay set.
 */
int vk_init_main_1(int option_code, const char *proc_name, int pid, int mode);

/*
 * vk_test_stack_1 tells whether the calling process has an environment of its own: vk_test_stack_main_1(getpid()).
 */
int vk_test_stack_1(void);

/*
 * vk_test_stack_main_1 tests the environment variables for process `pid`; a variable with an empty value counts as not
 * set. Reads the environment only.
 * Returns 0 (complete, and VOSKPID is `pid`); 15 (none, one for the System Log only, or one that `pid` has not
 * inherited); 17 (the variables contradict each other).
 */
int vk_test_stack_main_1(int pid);

/* ---- Recording ---- */

/*
 * vk_push_stack_1 records an incident into the calling process's VOSK Error Stack.
 *   fid              out: the identifier, 43 bytes; written when the record is made, zeroed where no identifier could
 *                    be made, untouched on errors; may be null (27)
 *   assoc_fid        identifier of an earlier incident that this one follows from, or null or empty; a buffer of 43
 *                    bytes (vk_eid_t): all 43 are copied
 *   resource_name    the reporting resource; not stored
 *   product_name, source_file, source_version, line
 *                    where the failure was detected; missing ones are replaced ("qrn_product", "unknown_file",
 *                    "no_version_num", 0)
 *   reserved         never read; pass 0
 *   detail_data      free text, or null
 *   detail_file      path of a file to copy into /var/adm/vosk/dumps and cite, or null; ignored (26) beside detail_data
 *   catalogue_name, message_set, message_number, default_message, ...
 *                    the description: a catalogue message, and the printf format (plain or positional) with its
 *                    arguments that stands in where the catalogue is missing
 * A record holds at most 1024 bytes; a longer one is cut (44), string arguments to 64 bytes each.
 * Returns 0; an attention 26 to 32, 35, 37 or 44 (the last one that applied; the record was made); 15 or 17 from the
 * environment test; 17 VOSKPID is another process; 19, 20, 22, 24, 25, 40, 41, 99 the stack file could not be created,
 * opened, locked, read or written: nothing was recorded.
 * Creates the stack file when it does not exist. May wait for other processes' recordings, and up to half a second for
 * a stack file that another process is just creating.
 *
 * VOSKRECLAIM. Once the file is full, the oldest records give way. By the standard rule less is cleared than a record
 * occupies: what is left is soon taken for a length, and most files refuse every recording (24) a few records after the
 * first wrap. Where the environment variable VOSKRECLAIM is exactly "whole", whole records give way instead, no more
 * than needed: a sound file refuses nothing, holds as many of the newest records as fit, and the recording position
 * never passes the file size. A file that the standard rule has stopped goes on under it and keeps every record that is
 * still whole; one whose header is corrupt is refused as before, and so is a recording position more than 4 bytes
 * behind the file size. The variable is read at each recording and inherited by child processes; any other value, or
 * none, is the standard rule. The layout of the file is the same, and processes under both rules may share one. Files
 * of a foreign version keep the standard rule.
 */
int vk_push_stack_1(vk_eid_t *fid, const char *assoc_fid, const char *resource_name, const char *product_name,
                    const char *source_file, const char *source_version, int line, uint64_t reserved,
                    const char *detail_data, const char *detail_file, const char *catalogue_name, int message_set,
                    int message_number, const char *default_message, ...) VK_PRINTF_FORMAT(14, 15);

/*
 * vk_push_stack_cmd_1 is vk_push_stack_1 for a command that a process runs: it records as the parent of the calling
 * process, so the environment must be the parent's own.
 */
int vk_push_stack_cmd_1(vk_eid_t *fid, const char *assoc_fid, const char *resource_name, const char *product_name,
                        const char *source_file, const char *source_version, int line, uint64_t reserved,
                        const char *detail_data, const char *detail_file, const char *catalogue_name, int message_set,
                        int message_number, const char *default_message, ...) VK_PRINTF_FORMAT(14, 15);

/*
 * vk_log_error_1 records an incident in the System Log (facility daemon). It needs no environment, but without VOSKADDR
 * there is no identifier (37).
 *   eid          out: the identifier, 43 bytes; untouched where none could be made; may be null (27)
 *   assoc_fid    identifier of an earlier incident, or null; printed as a text, up to its zero byte
 *   resource     also the identity given to openlog
 *   lpp, source_file, sid, line
 *                product, source file, its version and line of the detection
 *   reserved     never read; pass 0
 *   event_type   VOSK_EMERG to VOSK_DEBUG; any other value is recorded as VOSK_DEBUG (33)
 *   template_id  error template identifier, printed in hexadecimal
 *   detail_data, detail_len
 *                tested only: present or not, length 0 or not; never read
 *   detail_file  path of a file to copy into /var/adm/vosk/dumps and cite, or null; ignored (26) beside detail_data
 *   message, ... printf format and its arguments; at most 945 characters are kept, and 992 of the whole record
 * Returns 0 or the last attention that applied: 26 to 29, 32 to 37. The record is sent in every case.
 * Uses openlog, syslog and closelog: the process's own syslog connection is replaced for the call and closed after it.
 */
int vk_log_error_1(vk_eid_t *eid, const char *assoc_fid, const char *resource, const char *lpp, const char *source_file,
                   const char *sid, int line, uint64_t reserved, int event_type, uint32_t template_id,
                   const void *detail_data, int64_t detail_len, const char *detail_file, const char *message, ...)
    VK_PRINTF_FORMAT(14, 15);

/*
 * vk_make_dump_file_copy copies the file `input` to a new file in /var/adm/vosk/dumps, named after VOSKPNAME, the
 * process id and the local time in seconds, and writes the name to cite to `output` (4096 bytes): the copy's on
 * success, else `input` itself; `output` stays as it was where `input` fails its own test. Returns 0; -4 null or empty
 * `input`; -5 null `output`; a code of vk_test_for_file or vk_test_for_dir for the input or the directory; -27 two
 * copies within one second; -31 VOSKPNAME unset, or one whose slash would lead elsewhere; -16, -18, -20, -30, -1.
 */
int vk_make_dump_file_copy(int trace_on, const char *trace_path, const char *input, char *output);

/* ---- System Log texts ---- */

/* A detail field of a System Log message. */
typedef struct vk_syslog_field {
  int32_t length;            /* bytes that the field takes in the detail data; negative steps back */
  uint32_t set;              /* catalogue set of the label */
  uint32_t msgnum;           /* catalogue message of the label */
  const char *default_label; /* label where the catalogue has none */
  uint32_t kind;             /* 1: 32-bit value as "%d"; 2: zero-terminated string; other: 32-bit value as "%08x" */
} vk_syslog_field_t;

/* A System Log message: title, description and detail fields. */
typedef struct vk_syslog_tmpl {
  uint32_t reserved;               /* not used */
  const char *title;               /* first line */
  uint32_t set;                    /* catalogue set of the description */
  uint32_t msgnum;                 /* catalogue message of the description */
  const char *default_text;        /* description where the catalogue has none */
  uint32_t nfields;                /* number of fields */
  const vk_syslog_field_t *fields; /* their descriptors */
} vk_syslog_tmpl_t;

/* The flags of a recording call: one 32-bit entry each, non-zero when it applies. */
enum {
  VK_FLAG_NO_DEFAULT_MSG = 0,
  VK_FLAG_NO_CATALOGUE = 1,
  VK_FLAG_BAD_SET = 2,
  VK_FLAG_BAD_MSG_NUMBER = 3,
  VK_FLAG_NO_RESOURCE = 4,
  VK_FLAG_NO_FILE_NAME = 5,
  VK_FLAG_NO_VERSION = 6,
  VK_FLAG_NO_PRODUCT = 7,
  VK_FLAG_BAD_LINE = 8,
  VK_FLAG_NO_DETAIL = 9,
  VK_FLAG_BOTH_DETAILS = 10,
  VK_FLAG_OVER_LENGTH = 11,
  VK_FLAG_NO_EID_POINTER = 12,
  VK_FLAG_NO_EID = 13,
  VK_FLAG_COPY_FAILED = 14,
  VK_FLAG_BAD_EVENT_TYPE = 15,
  VK_FLAG_NO_MESSAGE = 16,
  VK_FLAG_BAD_DETAIL_SIZE = 17,
  VK_FLAG_SYSLOG_FAILED = 18,
  VK_FLAG_COUNT = 19
};

/*
 * vk_mk_syslog_msg_1 writes a message to `buffer`: the template's title and description, then label and value of each
 * detail field, one a line, labels and description from `catalogue` (an open one of catopen) where it has them. A field
 * that does not fit, or that starts outside the `detail_len` bytes of `detail_data`, ends the text. At most 946 bytes
 * of the `buffer_size` are used, the last of them a zero byte. Returns min(buffer_size, 946); with a size of 0 or less
 * nothing is written.
 */
int32_t vk_mk_syslog_msg_1(const vk_syslog_tmpl_t *tmpl, const void *detail_data, uint32_t detail_len, char *buffer,
                           int32_t buffer_size, nl_catd catalogue);

/*
 * vk_make_file_info_msg writes "product,file,version,line" to the 46 bytes of `field`: filled with blanks, or cut with
 * a '>' as the last character; no zero byte. The file is the last component of `source_file`. `flags` has VK_FLAG_COUNT
 * entries; those of the file name, version, product and line say what is missing and replaced. Returns 46.
 */
int vk_make_file_info_msg(int trace_on, const char *trace_path, char *field, const char *product,
                          const char *source_file, const char *version, int line, const uint32_t *flags);

/*
 * vk_determine_bsd_priority stores the syslog priority of `event_type` behind `priority`. An unknown type has
 * LOG_DEBUG, and sets state[VK_FLAG_BAD_EVENT_TYPE] to 1 when `mark` is 1; `state` has VK_FLAG_COUNT entries.
 */
void vk_determine_bsd_priority(int trace_on, const char *trace_path, uint32_t event_type, int32_t *priority, int mark,
                               uint32_t *state);

/*
 * vk_truncate_description cuts `description` to what is left of a terminal line of which `columns_used` are taken; the
 * line is COLUMNS wide, 80 without it. Returns the length that the description had.
 */
int vk_truncate_description(char *description, int columns_used);

/* ---- Identifiers ---- */

/*
 * vk_generate_eid writes a version 1 identifier to `eid` (43 bytes) and its seconds behind `seconds`: of the stack file
 * `stack_file`, or, where that is null, of the template `templ_id`. Reads VOSKADDR, which must hold 25 characters.
 * `seconds` and `eid` must not be null; both stay as they were on failure.
 * Returns 0; -11 stack and template at once; -4 an empty stack file name; -1 anything else that fails.
 */
int vk_generate_eid(unsigned int trace_on, const char *trace_path, const char *stack_file, uint32_t templ_id,
                    int64_t *seconds, char *eid);

/*
 * vk_generate_eid_2 writes a version 2 identifier: of a stack file (not null), a template (not 0) or a syslog facility
 * and priority (the facility as <syslog.h> has it, such as LOG_DAEMON; above 184 means none). A facility wins over a
 * template, and from 24 on over a stack file. Otherwise as vk_generate_eid.
 * Returns 0; -11 a stack together with a template or a facility of 0 to 23; -4 an empty stack file name; -1 others.
 */
int vk_generate_eid_2(unsigned int trace_on, const char *trace_path, const char *stack_file, uint32_t templ_id,
                      uint32_t facility, uint32_t priority, int64_t *seconds, char *eid);

/*
 * vk_decode_eid takes a version 1 identifier apart. All output pointers are required.
 *   on_node        1 if the identifier's address is one of this node's IPv4 addresses, else 0
 *   version_id     1
 *   location_mask  VK_LOCATION_TEMPLATE or VK_LOCATION_STACK
 *   stack_file     256 bytes: name (without directory) of the stack file with the identifier's i-node; set only for a
 *                  stack identifier of this node whose file is found. 255 bytes are written: zero it first
 *   err_templ_label  the template; set only for a template identifier
 *   timestamp      when it was generated
 *   ip_addr        16 bytes: the address in network order, 4 bytes for IPv4
 *   ipv6_flag      1 for IPv6, else 0
 * Returns 0; -3 not 42 characters; -4 to -10 a null output pointer; -99 version 2 or unknown; -36 no valid time; -24 a
 * stack identifier of this node without a file (all else is set); -13, -14 the stacks directory; -1; -4 or -5 from a
 * field. Outputs that were reached before a failure are set. Leaves one socket open per call.
 */
int vk_decode_eid(unsigned int trace_on, const char *trace_path, const char *eid, unsigned int *on_node,
                  unsigned int *version_id, unsigned int *location_mask, char *stack_file,
                  unsigned int *err_templ_label, struct timeval *timestamp, void *ip_addr, unsigned int *ipv6_flag);

/*
 * vk_decode_eid_2 takes a version 1 or 2 identifier apart. As vk_decode_eid, and:
 *   stack_file_list, list_size  slots of 256 bytes and their number: all names that the i-node has, as many as fit
 *   bsd_facility, bsd_priority  set for a syslog identifier; the facility as <syslog.h> has it
 * Returns also -11 when bsd_facility or bsd_priority is null, -4 for a malformed selector, -6 for a list size of 0.
 */
int vk_decode_eid_2(unsigned int trace_on, const char *trace_path, const char *eid, unsigned int *on_node,
                    unsigned int *version_id, unsigned int *location_mask, char *stack_file_list,
                    unsigned int list_size, unsigned int *err_templ_label, unsigned int *bsd_facility,
                    unsigned int *bsd_priority, struct timeval *timestamp, void *ip_addr, unsigned int *ipv6_flag);

/*
 * vk_display_fid_main_1 prints the line "2615-000 IDENTIFIER", in the user's language, to standard error when
 * `to_stderr` is 1, else to standard output. Sets the process's locale from the environment.
 * Returns 0; 27 when `eid` is null or not 42 characters long: nothing is printed.
 */
int vk_display_fid_main_1(const char *eid, int to_stderr);

/*
 * vk_display_fid_1 is vk_display_fid_main_1(eid, 1).
 */
int vk_display_fid_1(const char *eid);

/* ---- Node addresses ---- */

/* One textual address with its zero byte; lists are arrays of such slots, ended by an empty one. */
#define VK_ADDRESS_SLOT 46
/* The most addresses that a list can hold, without its empty last slot. */
#define VK_ADDRESS_MAX 64

/*
 * vk_obtain_ipaddrs writes this node's IPv4 addresses as text. With `choose_one` not 0 the one address that stands for
 * the node (the first that is not an up loopback, else the loopback, else the empty text) to the 46 bytes of
 * `addresses`, and 1 behind `count` unless that is null. With `choose_one` 0 all of them to the slots of `addresses`
 * (VK_ADDRESS_MAX + 1 zeroed slots), adding 1 to *count for each.
 * Returns 0 or -1. Leaves one socket open per call (close-on-exec), except where asking for an interface's flags fails.
 */
int vk_obtain_ipaddrs(int trace_on, const char *trace_path, char *addresses, unsigned int choose_one,
                      unsigned int *count);

/*
 * vk_get_ipaddr writes the node's address, encoded in 24 characters and a zero byte, to `ip_addr` (25 bytes) and its
 * type behind `ipv6_flag`: '.' for IPv4, '/' otherwise. Returns 0; -4, -5 a null pointer; -1, which is written to
 * `trace_path` whatever `trace_on` is.
 */
int vk_get_ipaddr(int trace_on, const char *trace_path, char *ip_addr, char *ipv6_flag);

/*
 * vk_conv_ipaddr decodes the encoded address `ip_rep` of type '.' or '/' to `address`: 4 or 16 bytes in network order.
 * Returns 0; -4 a null or empty `ip_rep`; -5 another type.
 */
int vk_conv_ipaddr(int trace_on, const char *trace_path, const char *ip_rep, char type, void *address);

/*
 * vk_test_ipaddr looks for the text `ip_addr` in `ip_list`, slots of 46 bytes ended by an empty one.
 * Returns 0 when it is there; -1 when not; -4 a null or empty `ip_addr`; -5 a null or empty list.
 */
int vk_test_ipaddr(int trace_on, const char *trace_path, const char *ip_addr, const char *ip_list);

/* ---- Base 64 ---- */

/*
 * vk_l64a_r writes `value` in base 64 to `buffer`, least significant digit first, and a zero byte behind it. At most
 * six digits are written; bits 36 and above are dropped. The value 0 yields an empty string. `buflen` is not the size
 * of `buffer`: a digit may land at buffer[buflen] and the zero byte behind it, so `buffer` needs room for min(buflen +
 * 2, 7) bytes. Returns 0, or -1 with errno EINVAL if `buffer` is NULL or the digits pass `buflen` (buffer[0] is then
 * zero). Safe in signal handlers and threads.
 */
int vk_l64a_r(uint64_t value, char *buffer, int buflen);

/*
 * vk_a64l returns the number that `string` encodes, all of its characters being digits; 0 for NULL or an empty string.
 * A character outside the alphabet counts as 64. Safe in signal handlers and threads.
 */
uint64_t vk_a64l(const char *string);

/*
 * vk_selector_substr copies the six characters of the location field, positions 2 to 7, of `identifier` to `out` unless
 * that is null; no zero byte is written behind them. Of a null `identifier` they are six zero bytes.
 */
void vk_selector_substr(const char *identifier, char *out);

/* ---- Trace ---- */

/*
 * vk_debug appends an entry to the trace file `trace_path`, as of routine `routine`: the printf `format` and its
 * arguments, of which 254 characters are kept. The file must exist. Waits for other writers.
 * Returns 0; -2, -3, -4 a null argument; -14, -16, -20, -21, -24, -25, -1 the file cannot be opened; -26 the file's
 * header is unusable, or reading or writing failed; -28, -29 the lock.
 */
int vk_debug(const char *trace_path, const char *routine, const char *format, ...) VK_PRINTF_FORMAT(3, 4);

/*
 * vk_is_debug_file_set tells whether VOSKDEBUG turns tracing on, and copies the path to `path_out` (4096 zeroed bytes).
 * Returns 1 the file exists; 2 it does not exist yet; 3 VOSKDEBUG is not set, or the process runs with raised
 * privileges; -2 null `path_out`; -13, -14, -15, -21, -22, -23, -1 the file is not usable.
 */
int vk_is_debug_file_set(char *path_out);

/*
 * vk_create_debug_file creates the trace file `path` of 16384 bytes. Returns as vk_allocate_file.
 */
int vk_create_debug_file(const char *path);

/* ---- Files ---- */

/*
 * fclear writes `length` zero bytes at the current position of `fd` and leaves the position behind them. A length of 0
 * or less writes nothing. Returns `length`, or -1 with errno set: EBADF for a negative `fd`, EINVAL for a pipe, EFBIG
 * when the end would pass 2 GiB - 1, or the error of the write; zeros already written stay.
 */
int fclear(int fd, int64_t length);

/*
 * vk_test_for_file returns 0 if `path` exists and is not a directory; -2 null or empty; -13, -14 its directory cannot
 * be searched or is missing; -23 a directory (block devices and sockets count as such); -24 missing; -25 no access; -1.
 */
int vk_test_for_file(int trace_on, const char *trace_path, const char *path);

/*
 * vk_test_for_dir returns 0 if `path` is a directory; -17 if it exists and is not; else as vk_test_for_file.
 */
int vk_test_for_dir(int trace_on, const char *trace_path, const char *path);

/*
 * vk_determine_max_fsize finds the largest size, from `wanted_size` bytes down in steps of two blocks while above
 * `min_size`, that a file in the directory of `path` may take while five percent of the file system stay free, and
 * stores it behind `granted_size`. Returns 0; -4, -5 a null pointer; -13, -14, -15 the directory; -18 no size fits; -1.
 */
int vk_determine_max_fsize(int trace_on, const char *trace_path, const char *path, int64_t wanted_size,
                           int64_t min_size, int64_t *granted_size);

/*
 * vk_allocate_file creates the file `path` with as much of `wanted_size` bytes reserved as the five-percent rule
 * allows, writes the header line of a trace file at its start and stores the size behind `reserved_size`. An existing
 * file is left alone: 0 is returned and nothing stored. Returns 0; -4 null `path`; -13, -14, -15 the directory; -16 not
 * permitted; -18 no space; -20 a limit; -28 no lock; -1. After a failure no file is left.
 */
int vk_allocate_file(int trace_on, const char *trace_path, const char *path, int64_t wanted_size, int64_t min_size,
                     int64_t *reserved_size);

#ifdef __GNUC__
#pragma GCC visibility pop
#endif

#ifdef __cplusplus
}
#endif

#endif
