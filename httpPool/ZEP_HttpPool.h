/**
 * @file
 * ZEP_HttpPool.h: the host's side of libhttpPool.so.
 *
 * Runs HTTP requests as named tasks in named pools. Plain C, usable from C and C++.
 *
 * - THREADS: Call every function from one thread, the thread whose run loop (its GLib main context; GTK and Qt
 *   applications turn it anyway, others call ZEP_RunLoop_Run() of ZEP_Foundation.h) serves the timers: the
 *   pool's notify function is called there, and tasks change their status there.
 * - NAMES: Pools and tasks are known by name, compared byte by byte. A name that is not known, or NULL, is not an
 *   error: the call does nothing and returns 0.
 * - TEXTS: UTF-8. The library copies what it is given and keeps no pointer of the caller's, but the notify
 *   function.
 * - RESULTS: -1 when the library is not initialised (before its load, after its unload); otherwise 0, and from
 *   ZEP_HttpPool_GetTaskProperty() the length of the value.
 * - FORKS: the process may fork(2) at any moment; its requests go on. A child that the calling thread has forked may
 *   call every function, too, and exit. The tasks that were running are the parent's: in the child they stay as they
 *   are until they are reset or removed there. What the child launches over http or https fails with errorID 6 if the
 *   process had a request before the fork. So a host that becomes a daemon, or gives its requests to child processes,
 *   forks first.
 * - MEMORY: a call that finds none does nothing, or only a part, and returns 0.
 *
 * The order of calls: Create, SetPoolProc, AddTask, SetTaskProperty ..., TaskRun; then at every notification
 * GetTaskStatus, and once the status is final (3, 5, 6, 9) GetTaskProperty; then TaskReset to run the task
 * again, RemoveTask, ClearTask or Destroy.
 */
#ifndef ZEP_HTTPPOOL_H
#define ZEP_HTTPPOOL_H

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ZEP_HTTPPOOL_API
#define ZEP_HTTPPOOL_API __attribute__((visibility("default")))
#endif

/** The state of a task. 32 bits. The word is what the task list shows. */
typedef enum ZEP_HTTP_TASK_STATUS {
  ZEP_HTTP_TASK_UNINITIALIZED = 0, /**< "uninitialized": just added, or reset */
  ZEP_HTTP_TASK_STATUS_1 = 1,      /**< "": not used */
  ZEP_HTTP_TASK_REQUESTING = 2,    /**< "requesting": launched; data may be arriving */
  ZEP_HTTP_TASK_DONE = 3,          /**< "successfully done": the result is in property 7 */
  ZEP_HTTP_TASK_NOT_EXIST = 4,     /**< "not exist": the pool has no task of that name; only ever an answer */
  ZEP_HTTP_TASK_FAILED = 5,        /**< "task failed": refused or failed; property 7 holds the error, if the
                                      request was launched */
  ZEP_HTTP_TASK_TIMEOUT = 6,       /**< "time out": reserved; a server that falls silent is a failed task */
  ZEP_HTTP_TASK_API_ERROR = 7,     /**< "api returned error": for the host's own use, never set */
  ZEP_HTTP_TASK_STATUS_8 = 8,      /**< "": not used */
  ZEP_HTTP_TASK_REDIRECTED = 9     /**< "": a redirect was captured; its target is in property 10 */
} ZEP_HTTP_TASK_STATUS;

/**
 * The properties of a task, all texts. 32 bits. Setting 7, 10 or any other number is ignored; reading a number
 * outside 1 to 10 gives the empty value.
 *
 * Property 1 is the text of a flat JSON object of strings, one member per request header field (RFC 9110 §5).
 * Some members steer the request instead:
 * - "HttpMethod": the method, for example "PUT"; without it the method is POST, also without a body
 * - "HttpMethonGet": method GET, whatever the value (the spelling is part of the interface)
 * - "Exchange-Autodiscover": a 301 or 302 is not followed: its target is in property 10
 * - "Exchange-Listmeeting": told to the host when it is asked for credentials
 * - "Adjacency": an untrusted server certificate is accepted without asking the user
 * - "Glint": a 429 answer ends as done with an error text that holds the retry delay; this one is
 *   sent as a header field, too
 *
 * Names that are no token and values with CR, LF or NUL are left out.
 *
 * Property 7 is, when the task is done, the body as text (bytes that are not UTF-8: as they are, up to the first
 * zero byte), or the path of the downloaded file; when it failed, {"errorID":n,"errorReason":m}:
 * - 0: not an error of URL loading
 * - 1: no network, connection lost, name server did not answer; a proxy that demands a password; a server
 *   certificate that is revoked or that the user's trust settings deny
 * - 2: a status other than 200, 404 and 407; or host not found, connection refused, TLS failure
 * - 3: signing in was skipped or refused, or a server certificate that does not hold was (ZEP_Foundation.h tells
 *   how host and user are asked)
 * - 4: no byte in either direction for 60 s
 * - 5: status 429 of a "Glint" request; errorReason is the retry delay in milliseconds
 * - 6: anything else; among it an answer that is not HTTP, too many redirects, a malformed method, a body that does
 *   not fit into memory
 *
 * errorReason is 0 otherwise. Statuses 404 and 407 are done, with their bodies.
 */
typedef enum ZEP_HTTP_TASK_PROPERTY {
  ZEP_HTTP_TASK_PROP_HEADER_FIELDS = 1, /**< set, get: header fields, above */
  ZEP_HTTP_TASK_PROP_EXTRA_2 = 2,       /**< set, get: the host's own */
  ZEP_HTTP_TASK_PROP_EXTRA_3 = 3,       /**< set, get: the host's own */
  ZEP_HTTP_TASK_PROP_EXTRA_4 = 4,       /**< set, get: the host's own */
  ZEP_HTTP_TASK_PROP_URL = 5,           /**< set, get: the URL (RFC 3986; http, https, file) */
  ZEP_HTTP_TASK_PROP_POST_DATA = 6,     /**< set, get: a text body; empty: no body */
  ZEP_HTTP_TASK_PROP_RESULT = 7,        /**< get: the result, above */
  ZEP_HTTP_TASK_PROP_DOWNLOAD_FILE =
      8,                          /**< set, get: not empty: the body goes to this file, without property 6 */
  ZEP_HTTP_TASK_PROP_EXTRA_9 = 9, /**< set, get: the host's own */
  ZEP_HTTP_TASK_PROP_REDIRECT_URL = 10 /**< get: the target of a captured redirect */
} ZEP_HTTP_TASK_PROPERTY;

/** What a notification says. 32 bits. */
typedef enum ZEP_HTTP_POOL_TASK_NOTIFY {
  ZEP_HTTP_POOL_TASK_NOTIFY_POLL = 0 /**< look at this task now */
} ZEP_HTTP_POOL_TASK_NOTIFY;

/**
 * Called for every task of a pool on every beat of the pool's timer (10 ms), on the thread that added the pool's
 * first task. The texts are valid during the call; `data` is NULL. The function may call the library, also to
 * remove, clear and add tasks and to destroy the pool. It must not let an exception escape.
 */
typedef void (*ZEP_HttpPool_NotifyProc)(ZEP_HTTP_POOL_TASK_NOTIFY code, const char* poolName,
                                        const char* taskName, const char* data);

/**
 * Creates a pool. A second pool of the same name is a pool of its own; calls find the older one until it is
 * destroyed. A NULL name creates nothing. The first pool pins the library into the process.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_Create(const char* poolName);

/** Sets the pool's notify function; NULL ends the notifications. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_SetPoolProc(const char* poolName, ZEP_HttpPool_NotifyProc proc);

/**
 * Destroys a pool: it is no longer found, and is deleted with its tasks within about 300 ms, on a turn of the run
 * loop. Until then its tasks go on and are notified.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_Destroy(const char* poolName);

/** Does nothing and returns 0, always; kept for the host's sequence of calls. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_Init(void* first, void* second);

/** Adds a task. Nothing happens when the pool has one of that name, or the name is NULL. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_AddTask(const char* poolName, const char* taskName);

/** Stops a task's request, if one is running, and deletes the task. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_RemoveTask(const char* poolName, const char* taskName);

/** The same for all tasks of a pool. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_ClearTask(const char* poolName);

/**
 * The pool's tasks as a JSON array of {"taskName":...,"taskStatus":word}. `*size` is set to the length of the text
 * plus 1; what it held before is not read. When `buffer` is not NULL, too, the text is copied there with its
 * terminator: `buffer` must have room for it. So ask first with a NULL buffer. With a NULL `size` nothing is
 * reported or copied. Unknown pool: nothing is touched.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_GetTaskList(const char* poolName, char* buffer, long* size);

/** All pools as a JSON array of {"poolName":...,"taskList":[...]}; `buffer` and `size` as above. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_GetSnapshot(char* buffer, long* size);

/**
 * Writes the task's status, or 4 when the pool has no such task. Unknown pool: `*status` is left as it is, so
 * preset it. `status` may be NULL.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_GetTaskStatus(const char* poolName, const char* taskName,
                                                 ZEP_HTTP_TASK_STATUS* status);

/**
 * Launches the task's request with its properties as they are now, and writes 2 (launched) or 5 (refused) to
 * `*status`, which may be NULL. A task that has ended may be run again without a reset.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_TaskRun(const char* poolName, const char* taskName,
                                           ZEP_HTTP_TASK_STATUS* status);

/** Stops the request, forgets the byte body and sets the status to 0; the properties keep their texts. */
ZEP_HTTPPOOL_API long ZEP_HttpPool_TaskReset(const char* poolName, const char* taskName);

/**
 * Sets a property (1 to 6, 8, 9). A NULL value is the empty text. Takes effect at the next run; but a task that is
 * run again without a reset keeps the header fields and the download target of its earlier run when property 1 or 8
 * has been emptied meanwhile.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_SetTaskProperty(const char* poolName, const char* taskName,
                                                   ZEP_HTTP_TASK_PROPERTY property, const char* value);

/**
 * Gives the task a body of `size` bytes, any bytes; it goes before properties 6 and 8. NULL data or a size of 0 or
 * less: no such body.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_SetTaskDataProperty(const char* poolName, const char* taskName,
                                                       const unsigned char* data, int size);

/**
 * Returns the length of a property's value in bytes; 0 when pool or task is unknown. When `buffer` and `size` are
 * both not NULL, copies the first min(*size, length) bytes to `buffer`, without a terminator, and leaves `*size`
 * as it is. A negative `*size` copies nothing.
 */
ZEP_HTTPPOOL_API long ZEP_HttpPool_GetTaskProperty(const char* poolName, const char* taskName,
                                                   ZEP_HTTP_TASK_PROPERTY property, char* buffer, long* size);

#ifdef __cplusplus
}
#endif

#endif /* ZEP_HTTPPOOL_H */
