/*
 * ZEP_Foundation.h: the host's side of libzepfoundation.so.
 *
 * Notifications by which the library asks the host and the host answers, and a run loop for hosts that do not
 * have one. Plain C, usable from C and C++. All texts are UTF-8.
 */
#ifndef ZEP_FOUNDATION_H
#define ZEP_FOUNDATION_H

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ZEP_FOUNDATION_API
#define ZEP_FOUNDATION_API __attribute__((visibility("default")))
#endif

/*
 * Called for every notification of the name it was registered for, on the thread that posts it, before the post
 * returns. All pointers but `context` are valid during the call only.
 *   name      the notification's name
 *   object    an identity of the poster, not to be dereferenced; may be NULL
 *   userInfo  the text of a JSON object (RFC 8259), or NULL when the notification carries none
 *   context   what was given at registration
 * The observer may add and remove observers and post notifications. It must not let an exception escape.
 */
typedef void (*ZEP_NotificationObserver)(const char* name, const void* object, const char* userInfo,
                                         void* context);

/*
 * Registers an observer. Any thread. `name` is copied; `fn` and `context` must stay valid until the observer is
 * removed. Returns a token greater than 0, or -1 when `name` or `fn` is NULL.
 */
ZEP_FOUNDATION_API long ZEP_Notification_AddObserver(const char* name, ZEP_NotificationObserver fn,
                                                     void* context);

/*
 * Removes an observer. Any thread, also from inside an observer. No call of it begins after the return; one that
 * is already running on another thread may still finish. Returns 0, or -1 when the token is unknown.
 */
ZEP_FOUNDATION_API long ZEP_Notification_RemoveObserver(long token);

/*
 * Posts a notification: calls its observers one after another on the calling thread, then returns. Any thread.
 * `userInfo` is the text of a JSON object, or NULL for none; it is copied.
 * Returns 0; -1 when `name` is NULL; -2 when `userInfo` is not the text of a JSON object (nothing is posted).
 */
ZEP_FOUNDATION_API long ZEP_Notification_Post(const char* name, const void* object, const char* userInfo);

/*
 * The notifications between library and host.
 *
 * "HTTPAuthenticationRequired", posted by the library on the thread of a request whose server demands a user name
 * and a password (NTLM, or Basic by RFC 7617). User information:
 *   "authLink"           the text "linkValue"
 *   "ShowWarningMsg"     the text "true" when a password that the library had kept was refused, else "false"
 *   "AuthRequiringType"  the kind of the request: 0 any, 1 "Exchange-Autodiscover", 2 "Exchange-Listmeeting",
 *                        3 "Adjacency", 4 "Glint" (ZEP_HttpPool.h, property 1)
 * The request waits, without a time limit, until "HTTPAuthenticationDatasource" is posted, by any thread and with
 * any object: at once when that happens inside the notification, else within 10 seconds of it. Stopping the
 * request (reset, remove, clear, destroy) waits for the answer, too. User information of the answer:
 *   "Username", "Password"  texts; an empty one, or none before, refuses: errorID 3
 *   "Remember"              true: the host keeps the password, the library uses it for this request only;
 *                           false or absent: the library keeps it until the process ends and uses it for all
 *                           requests to the same server, port, realm and scheme without asking
 * No user information at all (NULL) skips: errorID 3. An answer reaches every request that is waiting then.
 *
 * "HTTPLocalizationRequired", posted likewise and without user information, when texts for dialogs are needed.
 * The answer is "HTTPLocalizationDatasource" with the texts by their keys. The first answer with user information
 * is kept for the process; one without ends the wait, and the next need asks again.
 */

/*
 * Turns the calling thread's run loop (its thread-default GLib main context, else the default one), so that
 * timers and hand-overs of the library run. For hosts without an event loop of their own; hosts with GTK, Qt or
 * another GLib based loop do not need it. Calls may nest.
 *   milliseconds  how long to turn it, 0: what is due now, without waiting; < 0: until ZEP_RunLoop_Stop
 * Returns 0 when the time is over, 1 when it was stopped, -1 when another thread is turning this loop or the
 * calling thread belongs to the library.
 */
ZEP_FOUNDATION_API long ZEP_RunLoop_Run(long milliseconds);

/*
 * Ends the innermost ZEP_RunLoop_Run on the calling thread's run loop, as soon as the callback that is running
 * returns. Returns 0, or -1 when none is running.
 */
ZEP_FOUNDATION_API long ZEP_RunLoop_Stop(void);

#ifdef __cplusplus
}
#endif

#endif /* ZEP_FOUNDATION_H */
