#include "paperloom/platform/internal/session/TransferErrors.h"

#include <openssl/x509_vfy.h>

#include <string>
#include <string_view>

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
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
      return Code::secureConnectionFailed;
    case CURLE_WEIRD_SERVER_REPLY:
    case CURLE_UNSUPPORTED_PROTOCOL:  // an answer that is not HTTP
    case CURLE_BAD_CONTENT_ENCODING:
    case CURLE_BAD_FUNCTION_ARGUMENT:  // a folded line where there is no field to fold it into
      return Code::badServerResponse;
    default:
      return Code::unknown;
  }
}

long numberOf(CURL* handle, CURLINFO info) {
  long value = 0;
  curl_easy_getinfo(handle, info, &value);
  return value;
}

// What is wrong with a certificate that was refused. libcurl compares the name after OpenSSL has
// verified the rest, and then says nothing of OpenSSL's.
const char* certificateFault(long verification) {
  switch (verification) {
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return "has expired, or this machine's clock is ahead";
    case X509_V_ERR_CERT_NOT_YET_VALID:
      return "is not valid yet, or this machine's clock is behind";
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
      return "is self-signed and not trusted";
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
      return "comes from an issuer that is not trusted";
    case X509_V_OK:
    case X509_V_ERR_UNSPECIFIED:
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return "is for another host";
    default:
      return "cannot be verified";
  }
}

std::string reasonForNoSecurity(CURLcode code, CURL* handle) {
  if (code == CURLE_SSL_PINNEDPUBKEYNOTMATCH) {
    return "the server's public key is none of those that are pinned for its host";
  }
  const std::string_view library = curl_version_info(CURLVERSION_NOW)->ssl_version;
  if (code != CURLE_PEER_FAILED_VERIFICATION || !library.starts_with("OpenSSL")) {
    return curl_easy_strerror(code);
  }
  const long ofProxy = numberOf(handle, CURLINFO_PROXY_SSL_VERIFYRESULT);
  if (ofProxy != X509_V_OK)
    return std::string("the proxy's certificate ") + certificateFault(ofProxy);
  return std::string("the certificate ") +
         certificateFault(numberOf(handle, CURLINFO_SSL_VERIFYRESULT));
}

}  // namespace

URLError errorForCode(CURLcode code, CURL* handle) {
  const long proxyStatus = numberOf(handle, CURLINFO_HTTP_CONNECTCODE);
  if (proxyStatus != 0 && proxyStatus / 100 != 2) {
    std::string text = "the proxy did not connect to the server: it answered with status ";
    return {Code::cannotConnectToHost, std::move(text) + std::to_string(proxyStatus)};
  }
  const Code meaning = urlErrorCode(code);
  switch (meaning) {
    case Code::cannotFindHost:
      return {meaning, code == CURLE_COULDNT_RESOLVE_PROXY ? "the proxy could not be found"
                                                           : "the server could not be found"};
    case Code::cannotConnectToHost:
      return {meaning, "could not connect to the server"};
    case Code::timedOut:
      return {meaning, "the request timed out"};
    case Code::networkConnectionLost:
      return {meaning, "the network connection was lost"};
    case Code::secureConnectionFailed:
      return {meaning, "no secure connection to the server could be made: " +
                           reasonForNoSecurity(code, handle)};
    case Code::badServerResponse:
      return {meaning, "the server's answer is not valid HTTP"};
    default:
      return {meaning, std::string("the request failed: ") + curl_easy_strerror(code)};
  }
}

}  // namespace paperloom::internal
