/* Prints the front page of a news service and the first article on it: front_page URL
 *
 *   cc -std=c11 front_page.c -lpaperloom -o front_page
 *
 * A service to try it with: paperloom serve
 */
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>

#include "paperloom/c/paperloom.h"

static void print(const char* before, paperloom_text text, const char* after) {
  printf("%s%.*s%s", before, (int)text.length, text.data != NULL ? text.data : "", after);
}

/* Keeps the answer for the one who waits for it. */
static void take(void* place, const paperloom_answer* answer) {
  *(const paperloom_answer**)place = paperloom_answer_retain(answer);
}

/* A host with a loop of its own would poll the descriptor there. Ends the program on a failure. */
static const paperloom_answer* wait_for(const paperloom_answer** place) {
  struct pollfd loop = {.fd = paperloom_file_descriptor(), .events = POLLIN};
  while (*place == NULL && poll(&loop, 1, -1) >= 0) paperloom_run_pending();
  if (paperloom_answer_code(*place) != PAPERLOOM_OK) {
    const paperloom_text text = paperloom_answer_text(*place);
    fprintf(stderr, "error: %.*s\n", (int)text.length, text.data);
    exit(1);
  }
  return *place;
}

static void print_front_page(const paperloom_stream* stream) {
  for (size_t i = 0; i < paperloom_stream_section_count(stream); ++i) {
    const paperloom_section* section = paperloom_stream_section_at(stream, i);
    print("", paperloom_section_uid(section), "\n");
    for (size_t j = 0; j < paperloom_section_card_count(section); ++j) {
      print("  ", paperloom_card_headline(paperloom_section_card_at(section, j)), "\n");
    }
  }
}

static void print_article(const paperloom_article* article) {
  print("\n", paperloom_article_headline(article), "\n");
  for (size_t i = 0; i < paperloom_article_author_count(article); ++i) {
    print("  ", paperloom_author_name(paperloom_article_author_at(article, i)), "\n");
  }
  for (size_t i = 0; i < paperloom_article_content_count(article); ++i) {
    const paperloom_block* block = paperloom_article_content_at(article, i);
    switch (paperloom_block_kind(block)) {
      case PAPERLOOM_BLOCK_HEADING:
      case PAPERLOOM_BLOCK_BODY:
      case PAPERLOOM_BLOCK_BLOCKQUOTE:
        print("\n", paperloom_block_text(block), "\n");
        break;
      case PAPERLOOM_BLOCK_IMAGE:
        print("\n[", paperloom_asset_caption(paperloom_block_asset(block)), "]\n");
        break;
      default: /* pictures, posts and whatever later versions bring */
        break;
    }
  }
}

int main(int argc, char** argv) {
  if (argc != 2) {
    fputs("usage: front_page URL\n", stderr);
    return 2;
  }
  const paperloom_configuration configuration = {.size = sizeof configuration,
                                                 .content_url = paperloom_text_from(argv[1])};
  const paperloom_answer* failure = NULL;
  paperloom_client* client = paperloom_client_create(&configuration, &failure);
  if (client == NULL) {
    print("error: ", paperloom_answer_text(failure), "\n");
    return 1;
  }

  const paperloom_text sections[] = {paperloom_text_from("news"), paperloom_text_from("sport"),
                                     paperloom_text_from("culture")};
  const paperloom_answer* front = NULL;
  paperloom_request_stream(client, sections, 3, take, &front);
  const paperloom_stream* stream = paperloom_answer_stream(wait_for(&front));
  print_front_page(stream);

  const paperloom_card* first =
      paperloom_section_card_at(paperloom_stream_section_at(stream, 0), 0);
  const paperloom_answer* story = NULL;
  paperloom_request_article(client, paperloom_card_url(first), take, &story);
  print_article(paperloom_answer_article(wait_for(&story)));

  paperloom_answer_release(story);
  paperloom_answer_release(front);
  paperloom_client_release(client);
  return 0;
}
