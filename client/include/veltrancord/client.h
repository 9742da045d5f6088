/* Client library of the configuration service.
 *
 * Every call is one exchange: it connects to the service's socket, sends one request, receives one
 * reply and closes. There is no connection to keep, no thread, no cache and no global: a client is
 * a plain structure of the caller's, and calls with different clients may run on any threads at
 * once. Calls with the same client must not overlap, since its `error` is written by each.
 *
 * Texts are NUL-terminated and are borrowed for the time of the call only. Unless said otherwise
 * a function returns 0 or a positive count or length for success and a negative
 * `enum veltrancord_result` for failure; client->error then tells more. A write returns only after
 * the changed files have been saved. */
#ifndef VELTRANCORD_CLIENT_H
#define VELTRANCORD_CLIENT_H

#include <stddef.h>
#include <stdint.h>
#include <veltrancord/result.h>

#ifdef __cplusplus
extern "C" {
#endif

#define VELTRANCORD_DEFAULT_SOCKET "/tmp/Veltrancord.unix"
#define VELTRANCORD_DEFAULT_TIMEOUT_MS 5000

/* Bounds in bytes, the terminating NUL not counted. What is longer is refused before connecting. */
enum veltrancord_bound {
    VELTRANCORD_MAX_READ_PATH = 511,
    VELTRANCORD_MAX_WRITE_PATH = 255,
    VELTRANCORD_MAX_VALUE = 4095,
    VELTRANCORD_MAX_SECRET_VALUE = 183, /* a value of an element "Password", in any letter case */
    VELTRANCORD_MAX_ATTRIBUTE_NAME = 63,
    VELTRANCORD_MAX_ATTRIBUTE_VALUE = 255,
    VELTRANCORD_MAX_UPLOAD_FILE_NAME = 255,
    VELTRANCORD_MAX_DOWNLOAD_FILE_NAME = 255,
    VELTRANCORD_MAX_RESTORE_FILE_NAME = 127,
    VELTRANCORD_MAX_SYNC_FILE_NAME = 127,
    VELTRANCORD_MAX_BACKUP_TEXT = 256,
    VELTRANCORD_MAX_LOG_TEXT = 15,
    VELTRANCORD_MAX_LOG_FIELD = 7, /* digits, sign included, of a field of a log query */
    VELTRANCORD_MAX_SUBJECT = 255  /* what of a longer subject of an error is not kept */
};

/* What went wrong in the last call that failed. */
struct veltrancord_error {
    int32_t code;     /* the negative result that the call returned */
    int system_error; /* errno of the system call that failed, or 0 */
    size_t bound;     /* for the ..._OVER_BOUND codes and REPLY_OVER_CAP: the bound ... */
    size_t found;     /* ... and the length that was found */
    size_t index;     /* which of several settings was refused, from 0 */

    /* What the call was about: the path of a setting, a file, a user, a permit, the socket that
     * cannot be reached. Empty where there is none. Control characters in it are shown as '?', and
     * what is over its bound ends in "...". No value, session or captcha is ever kept here. */
    char subject[VELTRANCORD_MAX_SUBJECT + 1];
};

struct veltrancord_client {
    const char* socket_path; /* borrowed as long as the client is used; null or empty: what the
                                environment's VELTRANCORD_SOCKET names, else the default. A program
                                that runs with more rights than who started it takes the default. */
    int32_t timeout_ms;      /* for a whole exchange: connect, send, receive; negative: none */
    int32_t wait_for_socket; /* not 0: a socket file that is missing is waited for, as one that
                                refuses always is; for programs that start before the service */
    struct veltrancord_error error;
};

/* clang-format off */
#define VELTRANCORD_CLIENT_INIT {NULL, VELTRANCORD_DEFAULT_TIMEOUT_MS, 0, {0, 0, 0, 0, 0, ""}}
/* clang-format on */

/* Where a reply goes. Replies shorter than `size` are put into the caller's buffer and nothing is
 * allocated; longer ones, up to `cap`, into memory that veltrancord_reply_release() frees. A cap
 * below `size` counts as `size` - 1: with a cap of 0 the library never allocates. */
struct veltrancord_reply {
    char* buffer; /* the caller's; may be null when size is 0 */
    size_t size;
    size_t cap;

    /* Set by the library. */
    const char* text; /* the reply with a NUL behind it; never null after a success */
    size_t length;
    int32_t result;  /* as the service answered it */
    char* allocated; /* memory that the library had to allocate, or null */
};

/* clang-format off */
#define VELTRANCORD_REPLY_INIT(buffer, size, cap) {(buffer), (size), (cap), NULL, 0, 0, NULL}
/* clang-format on */

/* Sets the defaults; the same as VELTRANCORD_CLIENT_INIT. */
VELTRANCORD_API void veltrancord_client_init(struct veltrancord_client* client);

/* Writes a sentence about client->error into `text`, cut at `size`, for example
 * "Network.Lan.Name: value over its bound: 4096 bytes, at most 4095". Return: the length of the
 * whole sentence. */
VELTRANCORD_API size_t veltrancord_error_text(const struct veltrancord_client* client, char* text,
                                              size_t size);

/* Frees what a call allocated for the reply; harmless when there is nothing. */
VELTRANCORD_API void veltrancord_reply_release(struct veltrancord_reply* reply);

/* ---- Any command ---- */

/* Sends `command`, ":" and `length` bytes of `argument` (binary) and receives the reply. For
 * commands that answer with a count the reply is empty and `result` is positive. A refused
 * connection is tried again until the deadline.
 *
 * Return: the service's result, negative ones included, or one of the library's. */
VELTRANCORD_API int32_t veltrancord_exchange(struct veltrancord_client* client, const char* command,
                                             const void* argument, size_t length,
                                             struct veltrancord_reply* reply);

/* Whether the service answers; changes nothing there. Return: VELTRANCORD_OK or a failure. */
VELTRANCORD_API int32_t veltrancord_ping(struct veltrancord_client* client);

/* Waits until the service answers, though its socket be missing, refusing or cut, at most
 * client->timeout_ms. Return: VELTRANCORD_OK, or the failure of the last attempt. */
VELTRANCORD_API int32_t veltrancord_wait(struct veltrancord_client* client);

/* ---- Settings ---- */

/* Reads one value into `value` with its NUL; a secret is given in plain text.
 *
 * Return: its length, VELTRANCORD_NOT_FOUND also for an element without text. */
VELTRANCORD_API int32_t veltrancord_get(struct veltrancord_client* client, const char* path,
                                        char* value, size_t size);

/* Reads "key=value" lines: of one value (without a line feed), of a subtree ("A.B.*") or of
 * everything ("*"). The second form shows what a level may see, the third leaves out what is not
 * meant to be shown.
 *
 * Return: the length; 0 when the subtree holds no text. */
VELTRANCORD_API int32_t veltrancord_read(struct veltrancord_client* client, const char* path,
                                         struct veltrancord_reply* reply);
VELTRANCORD_API int32_t veltrancord_read_with_level(struct veltrancord_client* client,
                                                    const char* path, int32_t level,
                                                    struct veltrancord_reply* reply);
VELTRANCORD_API int32_t veltrancord_read_visible(struct veltrancord_client* client,
                                                 const char* path, struct veltrancord_reply* reply);

/* One line of such a reply. Points into the reply; not NUL-terminated. */
struct veltrancord_line {
    const char* key;
    size_t key_length;
    const char* value;
    size_t value_length;
};

/* Takes the next line from `cursor`, a text that ends with a NUL, and moves it past the line. A
 * line without "=" belongs to the value before it, which held line feeds. Return: 1, or 0 at the
 * end. */
VELTRANCORD_API int veltrancord_next_line(const char** cursor, struct veltrancord_line* line);

/* One change. */
struct veltrancord_setting {
    const char* path;
    const char* value;
};

/* Writes all settings with one request, in order; elements that are missing are created. The
 * second form changes memory only, until veltrancord_sync_memory() or a later write saves the same
 * document. The service stops at the first setting that fails and undoes nothing: those before it
 * hold, those behind it were not tried.
 *
 * Blanks at the ends of a value, and all but one in a row, are kept until the next start of the
 * service only, when the XML library drops them; a secret keeps its own.
 *
 * Return: how many were written. When the library refuses one nothing is sent, and error.index
 * tells which one it is. */
VELTRANCORD_API int32_t veltrancord_write(struct veltrancord_client* client,
                                          const struct veltrancord_setting* settings, size_t count);
VELTRANCORD_API int32_t veltrancord_write_memory(struct veltrancord_client* client,
                                                 const struct veltrancord_setting* settings,
                                                 size_t count);

/* Writes one value. Return: 1. */
VELTRANCORD_API int32_t veltrancord_set(struct veltrancord_client* client, const char* path,
                                        const char* value);

/* Saves what was changed in memory only. */
VELTRANCORD_API int32_t veltrancord_sync_memory(struct veltrancord_client* client);

/* Removes an element, a whole document with its file ("A.*") or everything (".*"). */
VELTRANCORD_API int32_t veltrancord_remove(struct veltrancord_client* client, const char* path);

/* ---- Attributes: the last component of the path names one ---- */

/* Return: the length of the value that was put into `value` with its NUL. */
VELTRANCORD_API int32_t veltrancord_get_attribute(struct veltrancord_client* client,
                                                  const char* path, char* value, size_t size);

/* Reads "key=value" lines: of one attribute, of all of an element ("A.B.#"), of all below an
 * element
 * ("A.B.*") or of one name below an element ("A.B.*.Level"). Return: the length. */
VELTRANCORD_API int32_t veltrancord_read_attributes(struct veltrancord_client* client,
                                                    const char* path,
                                                    struct veltrancord_reply* reply);

/* As veltrancord_write(); an element that is missing is not created but VELTRANCORD_STORE_FAILED.
 */
VELTRANCORD_API int32_t veltrancord_write_attributes(struct veltrancord_client* client,
                                                     const struct veltrancord_setting* settings,
                                                     size_t count);

/* ---- Whole documents; file names are those of the service's side, best absolute ---- */

/* Replaces each document that the exchange file holds. */
VELTRANCORD_API int32_t veltrancord_upload(struct veltrancord_client* client, const char* file);

/* As upload, but values that are set now win over those of the file. */
VELTRANCORD_API int32_t veltrancord_restore(struct veltrancord_client* client, const char* file);

/* Sets each value of the file in the documents that are loaded. */
VELTRANCORD_API int32_t veltrancord_sync_file(struct veltrancord_client* client, const char* file);

/* Writes every document into one exchange file. */
VELTRANCORD_API int32_t veltrancord_download(struct veltrancord_client* client, const char* file);

/* Runs the device's backup script with `text` (may be null) on its command line, where a shell
 * reads it: never pass on what came from outside. */
VELTRANCORD_API int32_t veltrancord_backup(struct veltrancord_client* client, const char* text);

/* ---- Watching ----
 *
 * The service tells nobody of changes. But it replaces a document's file with each save, which the
 * kernel tells who watches the directory; what changed is then found by reading again and
 * comparing. So the caller must run on the service's machine and be allowed to read its directory,
 * and
 *  - what is changed in memory only is told when it is saved;
 *  - changes that follow closely are told as one, and a value that was changed and changed back in
 *    the meantime is not told at all;
 *  - an element without text is told as if it were not there.
 * There is no thread: changes are found in veltrancord_watch_next(). What is held is the text of
 * each path once, and twice while it is compared. */

#define VELTRANCORD_DEFAULT_DIRECTORY "/mnt/database/xml"

struct veltrancord_watcher; /* made by veltrancord_watch(), ended by veltrancord_watch_end() */

struct veltrancord_change {
    const char* path;   /* as veltrancord_read() tells it */
    const char* before; /* null: there was none */
    const char* after;  /* null: there is none any more */
};

/* Begins to watch `count` paths, each as for veltrancord_read(): a value, all below an element
 * ("A.B.*"), or everything ("*"). What does not exist yet may come. `directory`: where the service
 * keeps its documents; null: the default. `cap`: the longest text that one path may have. The
 * client is borrowed until the end of the watch, and may be used for other calls in between; paths
 * and directory are copied.
 *
 * Return: VELTRANCORD_OK with the watcher, or a failure with null: VELTRANCORD_SYSTEM_ERROR names a
 * directory that is missing or may not be read. */
VELTRANCORD_API int32_t veltrancord_watch(struct veltrancord_client* client,
                                          const char* const* paths, size_t count,
                                          const char* directory, size_t cap,
                                          struct veltrancord_watcher** watcher);

/* Waits at most `timeout_ms` (negative: for ever) for the next change. Changes that were found
 * together come one by one, those of one path sorted. The texts hold until the next call with the
 * same watcher. A read that fails is tried again by the next call, so nothing is missed while the
 * service restarts; pause before that call.
 *
 * Return: 1 with the change, 0 when the time is over, or a failure; VELTRANCORD_SYSTEM_ERROR with
 * the system's ENOENT when the directory itself has gone, which ends the watch. */
VELTRANCORD_API int32_t veltrancord_watch_next(struct veltrancord_watcher* watcher,
                                               int32_t timeout_ms,
                                               struct veltrancord_change* change);

/* For a program that waits for other things as well, or wants to be able to stop waiting: a
 * descriptor that poll() finds readable when there may be changes. Call veltrancord_watch_next()
 * with a time-out of 0 until it gives 0 before each wait. It stays the watcher's. */
VELTRANCORD_API int veltrancord_watch_descriptor(const struct veltrancord_watcher* watcher);

/* Ends the watch and releases the watcher; null is harmless. */
VELTRANCORD_API void veltrancord_watch_end(struct veltrancord_watcher* watcher);

/* ---- Event log ---- */

#define VELTRANCORD_LOG_RECORD_SIZE 32

struct veltrancord_log_record {
    int32_t type;                            /* event type, also a mask for reading */
    int32_t year;                            /* 2000 to 2255 */
    uint8_t month;                           /* 1 to 12 */
    uint8_t day;                             /* 1 to 31 */
    uint8_t hour;                            /* 0 to 23 */
    uint8_t minute;                          /* 0 to 59 */
    uint8_t second;                          /* 0 to 60 */
    uint8_t detail1;                         /* first detail value */
    uint8_t detail2;                         /* second detail value */
    char text[VELTRANCORD_MAX_LOG_TEXT + 1]; /* not empty, without ':' */
    int32_t time; /* seconds since the epoch, for veltrancord_log_add_with_time(); 0 when read */
};

/* To and from the 32 bytes of a record; no exchange. Packing takes the text up to its bound. */
VELTRANCORD_API void veltrancord_log_pack(const struct veltrancord_log_record* record,
                                          unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE]);
VELTRANCORD_API void veltrancord_log_unpack(const unsigned char bytes[VELTRANCORD_LOG_RECORD_SIZE],
                                            struct veltrancord_log_record* record);

/* Adds an event with the present time or with record->time. The date fields are not used. */
VELTRANCORD_API int32_t veltrancord_log_add(struct veltrancord_client* client,
                                            const struct veltrancord_log_record* record);
VELTRANCORD_API int32_t veltrancord_log_add_with_time(struct veltrancord_client* client,
                                                      const struct veltrancord_log_record* record);

/* Where reading starts. The position of the last two is one for all clients of the service. */
enum veltrancord_log_mode {
    VELTRANCORD_LOG_NEWEST = 1, /* from the newest event, towards older ones */
    VELTRANCORD_LOG_OLDER = 2,  /* on from where the last call stopped */
    VELTRANCORD_LOG_NEWER = 3   /* back towards newer ones */
};

/* Reads at most `count` events whose type has a bit of `mask` (-1: all) into `records`.
 *
 * Return: how many were read. */
VELTRANCORD_API int32_t veltrancord_log_read(struct veltrancord_client* client,
                                             enum veltrancord_log_mode mode, int32_t mask,
                                             struct veltrancord_log_record* records, size_t count);

/* Return: how many events there are; how many fit. On a file system too small for a log the
 * service's capacity is below 0, and looks like a failure. */
VELTRANCORD_API int32_t veltrancord_log_count(struct veltrancord_client* client);
VELTRANCORD_API int32_t veltrancord_log_capacity(struct veltrancord_client* client);

VELTRANCORD_API int32_t veltrancord_log_clear(struct veltrancord_client* client);

/* ---- Permits ---- */

/* Whether a group (a user) may use the function that `permit` names; `argument` is the channel for
 * permits that have channels, else null.
 *
 * Return: VELTRANCORD_OK when allowed, VELTRANCORD_DENIED also for an unknown user or group,
 * VELTRANCORD_NOT_FOUND when the group holds no such permit. */
VELTRANCORD_API int32_t veltrancord_group_may(struct veltrancord_client* client, const char* group,
                                              const char* permit, const char* argument);
VELTRANCORD_API int32_t veltrancord_user_may(struct veltrancord_client* client, const char* user,
                                             const char* permit, const char* argument);

/* Whether a user may issue a CGI command; `parameters` may be null. Return: as above. */
VELTRANCORD_API int32_t veltrancord_user_may_cgi(struct veltrancord_client* client,
                                                 const char* user, const char* command,
                                                 const char* parameters);

/* Return: the length of the text that was put into `value` or `group` with its NUL. */
VELTRANCORD_API int32_t veltrancord_permit_value(struct veltrancord_client* client,
                                                 const char* group, const char* permit, char* value,
                                                 size_t size);
VELTRANCORD_API int32_t veltrancord_user_group(struct veltrancord_client* client, const char* user,
                                               char* group, size_t size);

/* Lines "permit1=Name&type=Switch&value=ON", one for each permit. Return: the length. */
VELTRANCORD_API int32_t veltrancord_list_permits(struct veltrancord_client* client,
                                                 struct veltrancord_reply* reply);

/* Makes changed permits and groups effective. */
VELTRANCORD_API int32_t veltrancord_sync_permits(struct veltrancord_client* client);

/* ---- Sessions and captchas ---- */

/* A lifetime of VELTRANCORD_DEFAULT_LIFETIME leaves the choice to the service: 60 seconds for a
 * session, 30 for a captcha. */
#define VELTRANCORD_DEFAULT_LIFETIME INT32_MIN

VELTRANCORD_API int32_t veltrancord_set_session(struct veltrancord_client* client,
                                                const char* session);

/* Return: VELTRANCORD_OK, or VELTRANCORD_NOT_FOUND when it is unknown or older than `lifetime`. */
VELTRANCORD_API int32_t veltrancord_check_session(struct veltrancord_client* client,
                                                  const char* session, int32_t lifetime);

VELTRANCORD_API int32_t veltrancord_set_captcha(struct veltrancord_client* client,
                                                const char* verify_code, const char* captcha);

/* A match is refreshed, or with `remove` not 0 forgotten. A wrong answer forgets nothing: whoever
 * may go on guessing will find it, so delete the captcha after the first one.
 *
 * Return: VELTRANCORD_OK for a match and for nothing else. VELTRANCORD_CAPTCHA_WRONG,
 * VELTRANCORD_CAPTCHA_EXPIRED and VELTRANCORD_NOT_FOUND (an unknown code) are below 0. */
VELTRANCORD_API int32_t veltrancord_compare_captcha(struct veltrancord_client* client,
                                                    const char* verify_code, const char* captcha,
                                                    int remove, int32_t lifetime);
VELTRANCORD_API int32_t veltrancord_refresh_captcha(struct veltrancord_client* client,
                                                    const char* verify_code, const char* captcha);

/* Return: VELTRANCORD_OK whether or not there was one; the service does not tell. */
VELTRANCORD_API int32_t veltrancord_delete_captcha(struct veltrancord_client* client,
                                                   const char* verify_code, const char* captcha);

#ifdef __cplusplus
}
#endif

#endif
