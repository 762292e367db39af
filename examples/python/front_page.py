#!/usr/bin/env python3
"""Prints the front page of a news service and the first article on it: front_page.py URL

Needs nothing but Python's standard library and libpaperloom.so.1, which is looked for where the
system looks for libraries, or at the path in PAPERLOOM_LIBRARY. A service to try it with:
paperloom serve
"""
import ctypes
import datetime
import os
import select
import sys
import textwrap
from ctypes import POINTER, c_int32, c_int64, c_size_t, c_void_p


class Text(ctypes.Structure):
    _fields_ = [("data", c_void_p), ("length", c_size_t)]

    @staticmethod
    def of(string):
        text = Text()
        text.bytes = string.encode()  # lives as long as the text that borrows it
        text.data = ctypes.cast(ctypes.c_char_p(text.bytes), c_void_p)
        text.length = len(text.bytes)
        return text

    def __str__(self):
        return ctypes.string_at(self.data, self.length).decode() if self.data else ""


class Configuration(ctypes.Structure):
    _fields_ = [
        ("size", c_size_t), ("content_url", Text), ("identity_url", Text),
        ("request_timeout", c_int64), ("resource_timeout", c_int64), ("connections", c_int32),
        ("maximum_body_size", c_int64), ("certificates", Text), ("proxy", Text),
        ("cache_folder", Text), ("cache_memory", c_int64), ("cache_disk", c_int64),
        ("identity_cache_folder", Text), ("keep_tokens", c_void_p), ("keep_user_data", c_void_p),
    ]


library = ctypes.CDLL(os.environ.get("PAPERLOOM_LIBRARY", "libpaperloom.so.1"))
Callback = ctypes.CFUNCTYPE(None, c_void_p, c_void_p)
HEADING, BODY, BLOCKQUOTE = 1, 2, 3  # of enum paperloom_block_kind


def function(name, result, *arguments):
    found = getattr(library, "paperloom_" + name)
    found.restype, found.argtypes = result, arguments
    return found


def texts(*names):
    return [function(name, Text, c_void_p) for name in names]


def parts(name):
    """A function that lists the parts of a handle, of the two that count them and read one."""
    count = function(name + "_count", c_size_t, c_void_p)
    at = function(name + "_at", c_void_p, c_void_p, c_size_t)
    return lambda whole: [at(whole, index) for index in range(count(whole))]


sections, cards = parts("stream_section"), parts("section_card")
authors, contents = parts("article_author"), parts("article_content")
section_uid, card_headline, card_url = texts("section_uid", "card_headline", "card_url")
article_headline, author_name, block_text = texts("article_headline", "author_name", "block_text")
block_kind = function("block_kind", c_int32, c_void_p)
published_time = function("article_published_time", ctypes.c_bool, c_void_p, POINTER(c_int64))
retain = function("answer_retain", c_void_p, c_void_p)
release = function("answer_release", None, c_void_p)
answer_code = function("answer_code", c_int32, c_void_p)
answer_text = function("answer_text", Text, c_void_p)
answer_stream = function("answer_stream", c_void_p, c_void_p)
answer_article = function("answer_article", c_void_p, c_void_p)
run_pending = function("run_pending", c_size_t)
loop = function("file_descriptor", ctypes.c_int)()
client_create = function("client_create", c_void_p, POINTER(Configuration), POINTER(c_void_p))
client_release = function("client_release", None, c_void_p)
request_stream = function("request_stream", ctypes.c_uint64, c_void_p, POINTER(Text), c_size_t,
                          Callback, c_void_p)
request_article = function("request_article", ctypes.c_uint64, c_void_p, Text, Callback, c_void_p)


def ask(request, *arguments):
    """Waits for the answer to a request; the caller releases it."""
    answers = []
    callback = Callback(lambda _, answer: answers.append(retain(answer)))
    request(*arguments, callback, None)
    while not answers:
        select.select([loop], [], [])
        run_pending()
    if answer_code(answers[0]) != 0:
        sys.exit(f"error: {answer_text(answers[0])}")
    return answers[0]


def print_article(article):
    print(f"\n{article_headline(article)}")
    names = ", ".join(str(author_name(author)) for author in authors(article))
    time = c_int64()
    if published_time(article, ctypes.byref(time)):
        date = datetime.datetime.fromtimestamp(time.value / 1000, datetime.timezone.utc)
        names += f"  {date:%d %B %Y}"
    print(names)
    for block in contents(article):
        if block_kind(block) in (HEADING, BODY, BLOCKQUOTE):
            print("\n" + textwrap.fill(str(block_text(block)), 80))


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.splitlines()[0])
    configuration = Configuration(size=ctypes.sizeof(Configuration),
                                  content_url=Text.of(sys.argv[1]))
    failure = c_void_p()
    client = client_create(ctypes.byref(configuration), ctypes.byref(failure))
    if not client:
        sys.exit(f"error: {answer_text(failure)}")

    uids = (Text * 3)(*[Text.of(uid) for uid in ("news", "sport", "culture")])
    front = ask(request_stream, client, uids, len(uids))
    for section in sections(answer_stream(front)):
        print(str(section_uid(section)).upper())
        for card in cards(section):
            print(f"  {card_headline(card)}")
    first = cards(sections(answer_stream(front))[0])[0]
    story = ask(request_article, client, card_url(first))
    print_article(answer_article(story))
    release(story)
    release(front)
    client_release(client)


if __name__ == "__main__":
    main()
