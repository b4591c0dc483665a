/*
 * The library's C interface, for hosts in other languages (Swift, Kotlin, C#, Dart, Python, ...).
 * Valid C99 and C++; plain types and opaque handles only. Link libiam (pkg-config `iam`, CMake
 * `iam::shared`).
 *
 * Rules at the boundary
 *
 * - Threads. The main thread is the thread that drives the library's main loop: the thread that
 *   calls `iam_create` and then `iam_run_pending`. Every function taking an `iam_manager*` must be
 *   called there; from another thread it returns IAM_ERR_THREAD and does nothing. Any thread may
 *   call `iam_last_error`, `iam_version`, `iam_string_free` and `iam_run_pending` (the last one
 *   makes its thread the main thread).
 * - Main loop. Either pump the loop from the UI loop (call `iam_run_pending` often, and again after
 *   the delay it answers), or install a waker with `iam_set_main_thread_waker`: the library calls it,
 *   from any thread, whenever the loop has new work, and the host then posts a call of
 *   `iam_run_pending` to its main thread.
 * - Callbacks run on the main thread, inside `iam_run_pending` or inside the call that caused them,
 *   except the log sink, which runs on whichever thread logs. Each gets back the `context` it was
 *   registered with. Strings handed to a callback are valid only during the call. A callback must
 *   not destroy the manager.
 * - Ownership. A `char*` returned through an out parameter belongs to the caller, who frees it with
 *   `iam_string_free`. A `const char*` returned by the library belongs to the library (see each
 *   function for how long it stays valid). Strings passed in are copied; the library keeps none.
 *   All text is UTF-8; text that is not valid UTF-8 is refused with IAM_ERR_ARGUMENT.
 * - Errors. No C++ exception and no signal crosses this interface. What can fail returns an
 *   `iam_status`; on anything but IAM_OK, `iam_last_error` holds a text saying why.
 * - Handles. One manager exists at a time. A destroyed handle stays recognised: calls with it
 *   return IAM_ERR_DESTROYED and do nothing, so a late call after `iam_destroy` is harmless.
 * - Enumerations cross as `int`, so that a value this version does not know is refused, not undefined.
 * - Structs passed in start with `size`, set to `sizeof` the struct the host was compiled with, so
 *   that later versions can add fields at the end without breaking old hosts.
 */
#ifndef IAM_CAPI_IAM_H
#define IAM_CAPI_IAM_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define IAM_API __attribute__((visibility("default")))
#else
#define IAM_API
#endif

typedef enum iam_status {
  IAM_OK = 0,
  IAM_ERR_NULL_HANDLE = 1, /* the manager handle is null */
  IAM_ERR_DESTROYED = 2,   /* the manager was destroyed; the call did nothing */
  IAM_ERR_ARGUMENT = 3,    /* a null or invalid argument (text that is not UTF-8, an unknown value) */
  IAM_ERR_STATE = 4,       /* not possible now (a second manager, no such advertisement) */
  IAM_ERR_IO = 5,          /* a file that cannot be opened */
  IAM_ERR_THREAD = 6,      /* called from a thread other than the main thread */
  IAM_ERR_INTERNAL = 7     /* the library failed; see iam_last_error */
} iam_status;

typedef struct iam_manager iam_manager;

/* The text of the last failure on the calling thread; "" when none. Owned by the library, valid
 * until the next call on this thread. */
IAM_API const char* iam_last_error(void);
/* The library version, "major.minor.patch". Static. */
IAM_API const char* iam_version(void);
/* Frees a string the library handed out. Null is ignored. */
IAM_API void iam_string_free(char* text);

typedef struct iam_config {
  size_t size;                  /* sizeof(iam_config) */
  const char* preferences_path; /* the file holding statistics and cached answers; required */
  const char* base_url;         /* the marketing service, e.g. "https://iam.example.com"; required.
                                 * Plain http only reaches 127.0.0.0/8, ::1 and localhost. */
  const char* service_key;      /* null: the built-in key; another key than the built-in one is refused */
  const char* app_version;      /* the app's version as users see it; null keeps the bundle's */
} iam_config;

/* Makes the manager (inactive) and counts an app launch. The calling thread becomes the main thread. */
IAM_API iam_status iam_create(const iam_config* config, iam_manager** out_manager);
/* Ends the manager after its saves finish. Null is ignored (IAM_OK); a destroyed handle gets
 * IAM_ERR_DESTROYED. */
IAM_API iam_status iam_destroy(iam_manager* manager);

/* While inactive, app events are neither counted nor acted on. Activating fetches the service's data. */
IAM_API iam_status iam_set_active(iam_manager* manager, int active);
/* Counts the event and may bring a display request (through the display handler). The impression
 * of a display request is counted by the library, whoever shows it. */
IAM_API iam_status iam_app_event(iam_manager* manager, const char* event_key);

typedef enum iam_app_state { IAM_APP_ACTIVE = 0, IAM_APP_INACTIVE = 1, IAM_APP_BACKGROUND = 2 } iam_app_state;
/* The app's state as the platform reports it. On becoming active again, also report the app event
 * "appToForeground", as at launch. */
IAM_API iam_status iam_set_application_state(iam_manager* manager, int state /* iam_app_state */);

typedef enum iam_reaction {
  IAM_REACTION_IMPRESSION = 0,
  IAM_REACTION_CLICK = 1,
  IAM_REACTION_DISMISS = 2,
  IAM_REACTION_POSTPONE = 3
} iam_reaction;
/* The user's reaction to an advertisement the host shows. A click opens what the advertisement
 * links to (through the open URL callback). IAM_ERR_STATE when the manager holds no such
 * advertisement. */
IAM_API iam_status iam_report_reaction(iam_manager* manager, const char* advertisement_id, int reaction /* iam_reaction */);

/* The targets of a space as JSON text, [{"advertisement": id, "target": id}, ...]; "[]" while
 * inactive. The caller frees *out_json with iam_string_free. */
IAM_API iam_status iam_targets_json(iam_manager* manager, const char* space_key, char** out_json);
/* An advertisement's resources as a JSON object of texts, {key: value or null}. Caller frees. */
IAM_API iam_status iam_resources_json(iam_manager* manager, const char* advertisement_id, char** out_json);
/* The statistics: {"advertisements": {id: {"impressions", "clicks", "dismisses", "postpones",
 * "triggers": {id: count}}}, "events": {key: count}, "launches": n}. Caller frees. */
IAM_API iam_status iam_stats_json(iam_manager* manager, char** out_json);
/* Forgets the service's data and every statistic. */
IAM_API iam_status iam_reset(iam_manager* manager);

/* Runs the main loop's ready tasks and due timers; answers the milliseconds until the next timer
 * is due, or -1 when none is scheduled. */
IAM_API int64_t iam_run_pending(void);
typedef void (*iam_wake_fn)(void* context);
/* Installs (or, with null, removes) the host's "post to my main thread" function. */
IAM_API iam_status iam_set_main_thread_waker(iam_wake_fn wake, void* context);

/* One display request. */
typedef struct iam_display_request {
  size_t size;                  /* sizeof the struct the library filled; fields past it are absent */
  const char* advertisement_id; /* never null */
  const char* trigger_id;       /* null when no trigger caused it */
  int display_type;             /* the advertisement's display type number */
} iam_display_request;

typedef enum iam_display_answer {
  IAM_DISPLAY_BY_MANAGER = 0,     /* the manager shows it with its own presenter */
  IAM_DISPLAY_HOST_WILL_SHOW = 1, /* the host shows it (report the impression when it does) */
  IAM_DISPLAY_HOST_WONT_SHOW = 2  /* the host takes it but does not show it */
} iam_display_answer;
/* Answers an iam_display_answer; a value it does not name leaves the request to the manager. */
typedef int (*iam_display_fn)(void* context, const iam_display_request* request);
/* Without a handler the manager shows every request itself. */
typedef void (*iam_advertisements_fn)(void* context, size_t advertisement_count);
typedef void (*iam_configuration_fn)(void* context);
/* Answers nonzero when the link was opened. */
typedef int (*iam_open_url_fn)(void* context, const char* url);
typedef void (*iam_review_fn)(void* context);
typedef enum iam_log_level { IAM_LOG_DEBUG = 0, IAM_LOG_INFO = 1, IAM_LOG_WARNING = 2, IAM_LOG_ERROR = 3 } iam_log_level;
typedef void (*iam_log_fn)(void* context, iam_log_level level, const char* message);

/* Each setter refuses a null function (IAM_ERR_ARGUMENT); iam_clear_callbacks removes them all.
 * The open URL, review and log callbacks are process-wide and go with the manager. */
IAM_API iam_status iam_set_display_handler(iam_manager* manager, iam_display_fn handler, void* context);
IAM_API iam_status iam_set_advertisements_observer(iam_manager* manager, iam_advertisements_fn observer, void* context);
IAM_API iam_status iam_set_configuration_observer(iam_manager* manager, iam_configuration_fn observer, void* context);
IAM_API iam_status iam_set_open_url_handler(iam_manager* manager, iam_open_url_fn handler, void* context);
/* Links from the service are opened only for "https", the store schemes ("itms-apps", "itms-appss",
 * "market") and the schemes allowed here (the app's own, e.g. "myapp"); others are refused with a
 * warning. Case does not matter. IAM_ERR_ARGUMENT for a text that is not a scheme name. */
IAM_API iam_status iam_allow_url_scheme(iam_manager* manager, const char* scheme);
IAM_API iam_status iam_set_review_handler(iam_manager* manager, iam_review_fn handler, void* context);
IAM_API iam_status iam_set_log_sink(iam_manager* manager, iam_log_fn sink, void* context);
IAM_API iam_status iam_clear_callbacks(iam_manager* manager);

#ifdef __cplusplus
}
#endif

#endif /* IAM_CAPI_IAM_H */
