/* A host of the library in C, and what its tests share. */
#ifndef PAPERLOOM_TESTS_C_HOST_H
#define PAPERLOOM_TESTS_C_HOST_H

#include <pthread.h>

#include "paperloom/c/paperloom.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Reports a failed check; the test goes on. */
void check(bool holds, const char* what, const char* file, int line);
#define CHECK(what) check(what, #what, __FILE__, __LINE__)

/* Where the answer of one request goes. */
struct slot {
  const paperloom_answer* answer; /* held */
  int calls;
  pthread_t thread;
};
void take(void* slot, const paperloom_answer* answer);
/* Runs the loop until the answer is there, which is then the slot's; NULL when none comes. */
const paperloom_answer* wait_for(struct slot* slot);
bool same(paperloom_text text, const char* expected);
paperloom_client* new_client(const char* content_url, const char* identity_url);

/* What the tests are, each with a service that suits it. */
void walks_the_front_page(const char* url);
void walks_an_article(const char* url);
void reads_the_sample_paper(const char* url);
void answers_every_request_once(const char* url);
void ends_what_a_released_client_leaves(const char* url, const char* identity_url);
void keeps_a_login(const char* identity_url);
void makes_and_unlinks_accounts(const char* identity_url);
void warms_a_front_page(const char* url);
void reads_structs_of_other_versions(const char* url);

#ifdef __cplusplus
}
#endif

#endif
