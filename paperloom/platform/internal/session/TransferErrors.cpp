#include "paperloom/platform/internal/session/TransferErrors.h"

#include <string>

namespace paperloom::internal {
namespace {

using Code = URLError::Code;

Code urlErrorCode(CURLcode code) {
  switch (code) {
    case CURLE_URL_MALFORMAT:
      return Code::badURL;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return Code::cannotFindHost;
    case CURLE_COULDNT_CONNECT:
    case CURLE_PROXY:
      return Code::cannotConnectToHost;
    case CURLE_OPERATION_TIMEDOUT:
      return Code::timedOut;
    case CURLE_GOT_NOTHING:
    case CURLE_PARTIAL_FILE:
    case CURLE_RECV_ERROR:
    case CURLE_SEND_ERROR:
    case CURLE_HTTP2:
    case CURLE_HTTP2_STREAM:
      return Code::networkConnectionLost;
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_INVALIDCERTSTATUS:
    case CURLE_SSL_ENGINE_INITFAILED:
    case CURLE_PEER_FAILED_VERIFICATION:
      return Code::secureConnectionFailed;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:  // an answer that is not HTTP
    case CURLE_BAD_CONTENT_ENCODING:
      return Code::badServerResponse;
    default:
      return Code::unknown;
  }
}

}  // namespace

URLError errorForCode(CURLcode code) {
  const Code meaning = urlErrorCode(code);
  const std::string detail = curl_easy_strerror(code);
  switch (meaning) {
    case Code::cannotFindHost:
      return {meaning, "the server could not be found"};
    case Code::cannotConnectToHost:
      return {meaning, "could not connect to the server"};
    case Code::timedOut:
      return {meaning, "the request timed out"};
    case Code::networkConnectionLost:
      return {meaning, "the network connection was lost"};
    case Code::secureConnectionFailed:
      return {meaning, "no secure connection to the server could be made: " + detail};
    case Code::badServerResponse:
      return {meaning, "the server's answer is not valid HTTP"};
    default:
      return {meaning, "the request failed: " + detail};
  }
}

}  // namespace paperloom::internal
