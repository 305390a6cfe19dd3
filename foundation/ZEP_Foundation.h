/**
 * @file
 * ZEP_Foundation.h: the host's side of libzepfoundation.so.
 *
 * Notifications by which the library asks the host and the host answers, the panel that puts a server's
 * certificate to the user, and a run loop for hosts that do not have one. Plain C, usable from C and C++. All
 * texts are UTF-8.
 */
#ifndef ZEP_FOUNDATION_H
#define ZEP_FOUNDATION_H

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ZEP_FOUNDATION_API
#define ZEP_FOUNDATION_API __attribute__((visibility("default")))
#endif

/**
 * Called for every notification of the name it was registered for, on the thread that posts it, before the post
 * returns. All pointers but `context` are valid during the call only.
 * - `name`: the notification's name
 * - `object`: an identity of the poster, not to be dereferenced; may be NULL
 * - `userInfo`: the text of a JSON object (RFC 8259), or NULL when the notification carries none
 * - `context`: what was given at registration
 *
 * The observer may add and remove observers and post notifications. It must not let an exception escape.
 */
typedef void (*ZEP_NotificationObserver)(const char* name, const void* object, const char* userInfo,
                                         void* context);

/**
 * Registers an observer. Any thread. `name` is copied; `fn` and `context` must stay valid until the observer is
 * removed. Returns a token greater than 0, or -1 when `name` or `fn` is NULL.
 */
ZEP_FOUNDATION_API long ZEP_Notification_AddObserver(const char* name, ZEP_NotificationObserver fn,
                                                     void* context);

/**
 * Removes an observer. Any thread, also from inside an observer. No call of it begins after the return; one that
 * is already running on another thread may still finish. Returns 0, or -1 when the token is unknown.
 */
ZEP_FOUNDATION_API long ZEP_Notification_RemoveObserver(long token);

/**
 * Posts a notification: calls its observers one after another on the calling thread, then returns. Any thread.
 * `userInfo` is the text of a JSON object, or NULL for none; it is copied.
 * Returns 0; -1 when `name` is NULL; -2 when `userInfo` is not the text of a JSON object (nothing is posted).
 */
ZEP_FOUNDATION_API long ZEP_Notification_Post(const char* name, const void* object, const char* userInfo);

/**
 * @page notifications Notifications between library and host
 *
 * "HTTPAuthenticationRequired", posted by the library on the thread of a request whose server demands a user name
 * and a password (NTLM, or Basic by RFC 7617). User information:
 * - `authLink`: the text "linkValue"
 * - `ShowWarningMsg`: the text "true" when a password that the library had kept was refused, else "false"
 * - `AuthRequiringType`: the kind of the request: 0 any, 1 "Exchange-Autodiscover", 2 "Exchange-Listmeeting",
 *   3 "Adjacency", 4 "Glint" (ZEP_HttpPool.h, property 1)
 *
 * The request waits, without a time limit, until "HTTPAuthenticationDatasource" is posted, by any thread and with
 * any object: at once when that happens inside the notification, else within 10 seconds of it. Stopping the
 * request (reset, remove, clear, destroy) waits for the answer, too. User information of the answer:
 * - `Username`, `Password`: texts; an empty one, or none before, refuses: errorID 3
 * - `Remember`: true: the host keeps the password, the library uses it for this request only; false or absent: the
 *   library keeps it until the process ends and uses it for all requests to the same server, port, realm and scheme
 *   without asking
 *
 * No user information at all (NULL) skips: errorID 3. An answer reaches every request that is waiting then.
 *
 * "HTTPLocalizationRequired", posted likewise and without user information, when texts for the certificate panel are
 * needed. The answer is "HTTPLocalizationDatasource". Its user information, texts all, of which each may be absent:
 * - `CertificationMsg`: what is asked; the host's name is put in quotes behind it
 * - `CertificationInfo`: what follows from it
 * - `CertificationAlternateButtonTitle`: the title of the button that declines
 *
 * The first answer with user information is kept for the process; one without ends the wait, and the next need asks
 * again.
 */

/**
 * Shows a certificate panel of the host's own and waits for the user's answer. Called on the main thread (the one
 * that turns the default GLib main context), for one panel after another: while one is open, the next ones wait
 * until it returns. It may turn the run loop meanwhile, as a modal dialog of a toolkit or ZEP_RunLoop_Run() does;
 * the library's timers then pause, its hand-overs go on. Until it returns the request waits.
 * - `requestJson`: the text of a JSON object (RFC 8259), valid during the call only, with all of these members:
 *   - `panel`: "trust": ask whether to go on in spite of the certificate; "certificate": show the certificate, the
 *     answer does not count
 *   - `host`: the server's name, as in the URL
 *   - `message`: what is asked, one sentence
 *   - `informativeText`: what follows from it
 *   - `alternateButtonTitle`: the title of the button that declines
 *   - `certificates`: array of PEM texts (RFC 7468), the server's own first
 * - `context`: what was given to ZEP_TrustPanel_SetRunner()
 *
 * Returns 1 when the user confirmed; anything else means that he did not. All texts are to be shown as they are,
 * never as markup: the host name may be an attacker's. An exception must not escape: it ends the process.
 */
typedef int (*ZEP_TrustPanelRunner)(const char* requestJson, void* context);

/**
 * Sets the host's own certificate panel in place of the built-in one, NULL restores the built-in one. Any thread.
 * `fn` and `context` stay the host's; they must stay valid until they have been replaced and no call of `fn` is
 * running any more (after a replacement on the main thread, outside of `fn`, none is). Returns 0.
 *
 * The built-in panel is a program, zep-trust-panel, that is found beside this library or by the environment variable
 * ZEP_TRUST_PANEL and run as a child of the host, which has to leave the end of that child to the library: when
 * SIGCHLD is ignored, nothing is ever confirmed. Without that program or a display nothing is confirmed, either.
 */
ZEP_FOUNDATION_API long ZEP_TrustPanel_SetRunner(ZEP_TrustPanelRunner fn, void* context);

/**
 * Turns the calling thread's run loop (its thread-default GLib main context, else the default one), so that
 * timers and hand-overs of the library run. For hosts without an event loop of their own; hosts with GTK, Qt or
 * another GLib based loop do not need it. Calls may nest.
 * - `milliseconds`: how long to turn it, 0: what is due now, without waiting; < 0: until ZEP_RunLoop_Stop
 *
 * Returns 0 when the time is over, 1 when it was stopped, -1 when another thread is turning this loop or the
 * calling thread belongs to the library.
 */
ZEP_FOUNDATION_API long ZEP_RunLoop_Run(long milliseconds);

/**
 * Ends the innermost ZEP_RunLoop_Run on the calling thread's run loop, as soon as the callback that is running
 * returns. Returns 0, or -1 when none is running.
 */
ZEP_FOUNDATION_API long ZEP_RunLoop_Stop(void);

#ifdef __cplusplus
}
#endif

#endif /* ZEP_FOUNDATION_H */
