// What the library uses of libcurl.

#include <curl/curl.h>

#include <cstdarg>

#include "paperloom/platform/internal/late/LateLibrary.h"

// They check how they are called; the functions themselves are defined here.
#undef curl_easy_setopt
#undef curl_easy_getinfo
#undef curl_multi_setopt
#undef curl_share_setopt

namespace {

const paperloom::internal::LateLibrary& library() {
  static const paperloom::internal::LateLibrary opened(PAPERLOOM_LIBCURL);
  return opened;
}

// An option's number says what kind of value follows it.
template <class Function, class Handle, class Option>
auto setOption(Function* function, Handle* handle, Option option, va_list values) {
  switch (static_cast<int>(option) / CURLOPTTYPE_OBJECTPOINT * CURLOPTTYPE_OBJECTPOINT) {
    case CURLOPTTYPE_LONG:
      return function(handle, option, va_arg(values, long));
    case CURLOPTTYPE_FUNCTIONPOINT:
      return function(handle, option, va_arg(values, void (*)()));
    case CURLOPTTYPE_OFF_T:
      return function(handle, option, va_arg(values, curl_off_t));
    default:
      return function(handle, option, va_arg(values, void*));
  }
}

}  // namespace

// An enumeration, which is passed as the number that it would be promoted to.
#pragma GCC diagnostic ignored "-Wvarargs"

extern "C" {

CURLcode curl_easy_setopt(CURL* handle, CURLoption option, ...) {
  static auto* const function = library().find<decltype(curl_easy_setopt)>("curl_easy_setopt");
  va_list values;
  va_start(values, option);
  const CURLcode code = setOption(function, handle, option, values);
  va_end(values);
  return code;
}

CURLMcode curl_multi_setopt(CURLM* handle, CURLMoption option, ...) {
  static auto* const function = library().find<decltype(curl_multi_setopt)>("curl_multi_setopt");
  va_list values;
  va_start(values, option);
  const CURLMcode code = setOption(function, handle, option, values);
  va_end(values);
  return code;
}

// Its one option that the library sets names a kind of data.
CURLSHcode curl_share_setopt(CURLSH* handle, CURLSHoption option, ...) {
  static auto* const function = library().find<decltype(curl_share_setopt)>("curl_share_setopt");
  va_list values;
  va_start(values, option);
  const CURLSHcode code = function(handle, option, va_arg(values, int));
  va_end(values);
  return code;
}

// Every value of it is a place to write to.
CURLcode curl_easy_getinfo(CURL* handle, CURLINFO info, ...) {
  static auto* const function = library().find<decltype(curl_easy_getinfo)>("curl_easy_getinfo");
  va_list values;
  va_start(values, info);
  const CURLcode code = function(handle, info, va_arg(values, void*));
  va_end(values);
  return code;
}

PAPERLOOM_LATE(library, CURLcode, curl_global_init, (long flags), (flags))
PAPERLOOM_LATE(library, curl_version_info_data*, curl_version_info, (CURLversion age), (age))
PAPERLOOM_LATE(library, CURL*, curl_easy_init, (), ())
PAPERLOOM_LATE(library, void, curl_easy_cleanup, (CURL * handle), (handle))
PAPERLOOM_LATE(library, CURLcode, curl_easy_pause, (CURL * handle, int bits), (handle, bits))
PAPERLOOM_LATE(library, const char*, curl_easy_strerror, (CURLcode code), (code))
PAPERLOOM_LATE(library, CURLM*, curl_multi_init, (), ())
PAPERLOOM_LATE(library, CURLMcode, curl_multi_cleanup, (CURLM * multi), (multi))
PAPERLOOM_LATE(library, CURLMcode, curl_multi_add_handle, (CURLM * multi, CURL* handle),
               (multi, handle))
PAPERLOOM_LATE(library, CURLMcode, curl_multi_remove_handle, (CURLM * multi, CURL* handle),
               (multi, handle))
PAPERLOOM_LATE(library, CURLMsg*, curl_multi_info_read, (CURLM * multi, int* left), (multi, left))
PAPERLOOM_LATE(library, CURLMcode, curl_multi_socket_action,
               (CURLM * multi, curl_socket_t socket, int bits, int* running),
               (multi, socket, bits, running))
PAPERLOOM_LATE(library, CURLSH*, curl_share_init, (), ())
PAPERLOOM_LATE(library, CURLSHcode, curl_share_cleanup, (CURLSH * share), (share))
PAPERLOOM_LATE(library, curl_slist*, curl_slist_append, (curl_slist * list, const char* text),
               (list, text))
PAPERLOOM_LATE(library, void, curl_slist_free_all, (curl_slist * list), (list))
}
