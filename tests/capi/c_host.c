/* A C99 host: compiled with -std=c99 -Wall -Wextra -Werror, it checks that bad use of the
 * interface gets a status and a reason, and that a manager serves a plain host. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "iam/capi/iam.h"

static int failures = 0;

static void expect(int holds, const char* what) {
  if (!holds) {
    fprintf(stderr, "FAILED: %s (last error: \"%s\")\n", what, iam_last_error());
    ++failures;
  }
}

/* The status and a reason for it. */
static void expectFailure(iam_status got, iam_status wanted, const char* what) {
  expect(got == wanted, what);
  expect(got == IAM_OK || iam_last_error()[0] != '\0', "a failure comes with a reason");
}

static int opened = 0;
static int openUrl(void* context, const char* url) {
  (void)context;
  (void)url;
  return ++opened;
}

static void* eventOffTheMainThread(void* manager) {
  const iam_status status = iam_app_event((iam_manager*)manager, "offThread");
  return (void*)(intptr_t)(status == IAM_ERR_THREAD && iam_last_error()[0] != '\0');
}

int main(int argc, char** argv) {
  iam_manager* manager = NULL;
  iam_config config;
  char* json = NULL;
  const char* prefs = argc > 1 ? argv[1] : "c_host.prefs";
  remove(prefs);

  expect(strchr(iam_version(), '.') != NULL, "a version");
  expectFailure(iam_create(NULL, &manager), IAM_ERR_ARGUMENT, "no config");
  memset(&config, 0, sizeof config);
  config.size = sizeof config;
  expectFailure(iam_create(&config, &manager), IAM_ERR_ARGUMENT, "no preferences path");
  expect(manager == NULL, "no handle without a manager");
  config.preferences_path = "/nonexistent-folder/prefs";
  config.base_url = "http://127.0.0.1:9";
  expectFailure(iam_create(&config, &manager), IAM_ERR_IO, "a preferences file that cannot be opened");
  config.preferences_path = prefs;
  config.service_key = "not-the-key";
  expectFailure(iam_create(&config, &manager), IAM_ERR_ARGUMENT, "a foreign service key");
  config.service_key = NULL;
  config.size = sizeof(size_t);
  expectFailure(iam_create(&config, &manager), IAM_ERR_ARGUMENT, "a struct too small to hold the required fields");
  config.size = sizeof config;
  config.base_url = "not a url";
  expectFailure(iam_create(&config, &manager), IAM_ERR_ARGUMENT, "a base URL that is not one");
  config.base_url = "http://127.0.0.1:9";

  expectFailure(iam_app_event(NULL, "x"), IAM_ERR_NULL_HANDLE, "a null handle");
  expectFailure(iam_stats_json(NULL, &json), IAM_ERR_NULL_HANDLE, "a null handle for the statistics");
  expect(iam_destroy(NULL) == IAM_OK, "destroying null is ignored");

  expect(iam_create(&config, &manager) == IAM_OK && manager != NULL, "a manager");
  {
    iam_manager* second = NULL;
    expectFailure(iam_create(&config, &second), IAM_ERR_STATE, "a second manager");
  }
  expectFailure(iam_set_display_handler(manager, NULL, NULL), IAM_ERR_ARGUMENT, "a null display handler");
  expectFailure(iam_set_log_sink(manager, NULL, NULL), IAM_ERR_ARGUMENT, "a null log sink");
  expect(iam_set_open_url_handler(manager, openUrl, NULL) == IAM_OK, "an open URL handler");
  expect(iam_allow_url_scheme(manager, "MyApp") == IAM_OK, "the app's own scheme");
  expectFailure(iam_allow_url_scheme(manager, "myapp://"), IAM_ERR_ARGUMENT, "a scheme with its separator");
  expectFailure(iam_allow_url_scheme(manager, NULL), IAM_ERR_ARGUMENT, "a null scheme");
  expect(iam_set_active(manager, 1) == IAM_OK, "activates");
  expectFailure(iam_app_event(manager, "bad \xC3\x28 key"), IAM_ERR_ARGUMENT, "an event key that is not UTF-8");
  expectFailure(iam_app_event(manager, "over\xC0\xAFlong"), IAM_ERR_ARGUMENT, "an overlong encoding");
  expectFailure(iam_app_event(manager, NULL), IAM_ERR_ARGUMENT, "a null event key");
  expect(iam_app_event(manager, "levelComplete") == IAM_OK, "an event");
  {
    pthread_t thread;
    void* refused = NULL;
    expect(pthread_create(&thread, NULL, eventOffTheMainThread, manager) == 0 && pthread_join(thread, &refused) == 0 &&
               refused != NULL,
           "a call from another thread is refused");
  }
  expect(iam_last_error()[0] == '\0', "success clears the reason");
  expectFailure(iam_set_application_state(manager, 7), IAM_ERR_ARGUMENT, "an unknown state");
  expectFailure(iam_report_reaction(manager, "no-such-ad", IAM_REACTION_CLICK), IAM_ERR_STATE, "an unknown advertisement");
  expectFailure(iam_report_reaction(manager, "x", 9), IAM_ERR_ARGUMENT, "an unknown reaction");
  expectFailure(iam_resources_json(manager, "no-such-ad", &json), IAM_ERR_STATE, "resources of an unknown advertisement");
  expectFailure(iam_targets_json(manager, "feed", NULL), IAM_ERR_ARGUMENT, "no out parameter");
  expect(iam_targets_json(manager, "feed", &json) == IAM_OK && strcmp(json, "[]") == 0, "no targets without data");
  iam_string_free(json);
  iam_run_pending();
  expect(iam_stats_json(manager, &json) == IAM_OK && strstr(json, "\"levelComplete\":1") != NULL &&
             strstr(json, "\"launches\":1") != NULL,
         "the event and the launch are counted");
  iam_string_free(json);
  expect(iam_destroy(manager) == IAM_OK, "destroys");

  expectFailure(iam_app_event(manager, "late"), IAM_ERR_DESTROYED, "an event after destroy");
  expectFailure(iam_destroy(manager), IAM_ERR_DESTROYED, "a second destroy");
  expectFailure(iam_app_event((iam_manager*)&config, "x"), IAM_ERR_ARGUMENT, "something that never was a handle");

  /* The counts survive in the preferences file. */
  expect(iam_create(&config, &manager) == IAM_OK, "a manager over the same file");
  expect(iam_stats_json(manager, &json) == IAM_OK && strstr(json, "\"levelComplete\":1") != NULL &&
             strstr(json, "\"launches\":2") != NULL,
         "the counts were kept");
  iam_string_free(json);
  expect(iam_destroy(manager) == IAM_OK, "destroys again");
  remove(prefs);
  if (failures == 0) printf("c_host: all checks passed\n");
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
