#include "paperloom/platform/internal/session/Transfer.h"

#include <algorithm>
#include <utility>

#include "paperloom/platform/internal/http/ConfigurationRules.h"
#include "paperloom/platform/internal/http/RequestRules.h"
#include "paperloom/platform/internal/session/TransferErrors.h"
#include "paperloom/platform/internal/session/UnaskedInput.h"

namespace paperloom::internal {
namespace {

using Code = URLError::Code;

// Whether the request is sent again when a kept connection turns out to have ended.
bool isRepeatable(const URLRequest& request) {
  return request.method == "GET" || request.method == "HEAD";
}

// libcurl's word for a header line that has outgrown its buffer.
bool isOverflow(CURLcode code) {
  constexpr int tooLarge = 100;  // since 8.6
  return code == CURLE_OUT_OF_MEMORY || static_cast<int>(code) == tooLarge;
}

constexpr const char* bodyTooLarge = "the server's answer is too large";
constexpr const char* headerTooLarge = "the server's header is too large";

bool namesSeveralCodings(const HTTPHeaders& fields) {
  const auto value = fields.combined("Content-Encoding");
  return value && value->find(',') != std::string::npos;
}

}  // namespace

Transfer::Transfer(EasyHandle handle, CurlLoop& loop, URLRequest request, Connection connection,
                   const URLSessionConfiguration& configuration, TaskCore& task)
    : handle_(std::move(handle)),
      loop_(loop),
      request_(std::move(request)),
      configuration_(configuration),
      task_(task),
      callerNamesCodings_(request_.headers.contains("Accept-Encoding")),
      requestTime_(currentDate()) {
  task_.bytesExpected = -1;
  handle_.set(CURLOPT_URL, request_.url.absoluteString().c_str());
  // While a handshake is to tell whether the server speaks HTTP/2, no second connection is opened.
  handle_.set(CURLOPT_PIPEWAIT, mayShareConnection() ? 1L : 0L);
  // How much libcurl takes in at a time before others have their turn, empty frames included.
  handle_.set(CURLOPT_BUFFERSIZE, (mayShareConnection() ? 16L : 64L) * 1024);
  // What cannot be sent again must not meet a connection that its server is about to close.
  const bool isFresh = connection == Connection::fresh || !isRepeatable(request_);
  handle_.set(CURLOPT_FRESH_CONNECT, isFresh ? 1L : 0L);
  if (const auto keys = keysPinnedFor(request_.url, configuration_)) {
    handle_.set(CURLOPT_PINNEDPUBLICKEY, keys->c_str());
  }
  setMethod();
  setFields();
  setCallbacks();
}

Transfer::~Transfer() { curl_slist_free_all(fieldList_); }

void Transfer::setMethod() {
  const std::string& method = request_.method;
  const bool takesContent = method == "POST" || method == "PUT" || method == "PATCH";
  const bool sendsContent = request_.body.has_value() || takesContent;
  if (sendsContent) {
    const std::string_view content = request_.body ? request_.body->view() : std::string_view();
    handle_.set(CURLOPT_POST, 1L);
    handle_.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(content.size()));
    handle_.set(CURLOPT_POSTFIELDS, content.empty() ? "" : content.data());
  } else if (method == "HEAD") {
    handle_.set(CURLOPT_NOBODY, 1L);
    return;
  }
  if (method != (sendsContent ? "POST" : "GET")) {
    handle_.set(CURLOPT_CUSTOMREQUEST, method.c_str());
  }
  handle_.set(CURLOPT_NOPROGRESS, sendsContent ? 0L : 1L);
}

void Transfer::setFields() {
  const HTTPHeaders fields = fieldsToSend(request_);
  std::string line;
  for (const auto& [name, value] : fields) {
    // "Name:" would take the field out and "Name;" sends it empty.
    const bool isEmpty = value.find_first_not_of(" \t") == std::string::npos;
    line.assign(name).append(isEmpty ? ";" : ": ").append(isEmpty ? "" : value);
    fieldList_ = curl_slist_append(fieldList_, line.c_str());
  }
  for (const char* libcurlsOwn : {"Content-Type", "Expect"}) {
    if (fields.contains(libcurlsOwn)) continue;
    fieldList_ = curl_slist_append(fieldList_, std::string(libcurlsOwn).append(":").c_str());
  }
  handle_.set(CURLOPT_HTTPHEADER, fieldList_);
}

void Transfer::setCallbacks() {
  handle_.set(CURLOPT_HEADERFUNCTION, &Transfer::onHeader);
  handle_.set(CURLOPT_HEADERDATA, this);
  handle_.set(CURLOPT_WRITEFUNCTION, &Transfer::onBody);
  handle_.set(CURLOPT_WRITEDATA, this);
  handle_.set(CURLOPT_XFERINFOFUNCTION, &Transfer::onProgress);
  handle_.set(CURLOPT_XFERINFODATA, this);
  handle_.set(CURLOPT_PREREQFUNCTION, &Transfer::onRequest);
  handle_.set(CURLOPT_PREREQDATA, this);
  handle_.set(CURLOPT_RESOLVER_START_FUNCTION, &Transfer::onResolve);
  handle_.set(CURLOPT_RESOLVER_START_DATA, this);
  handle_.set(CURLOPT_OPENSOCKETFUNCTION, &Transfer::onOpenSocket);
  handle_.set(CURLOPT_OPENSOCKETDATA, this);
}

std::size_t Transfer::onHeader(char* bytes, std::size_t, std::size_t size, void* self) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.idleSince_ = transfer.loop_.now();
  return transfer.answerWasAskedFor() && transfer.takeHeaderLine({bytes, size}) ? size : 0;
}

std::size_t Transfer::onBody(char* bytes, std::size_t, std::size_t size, void* self) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  transfer.idleSince_ = transfer.loop_.now();
  if (transfer.hasTakenItsShare()) {
    transfer.loop_.pauseForThisTurn(transfer.handle());
    return CURL_WRITEFUNC_PAUSE;
  }
  return transfer.takeBody({bytes, size}) ? size : 0;
}

bool Transfer::hasTakenItsShare() {
  constexpr std::int64_t share = 256 * 1024;
  const std::int64_t effort = body_ ? body_->effort() : 0;
  if (std::exchange(turn_, loop_.turn()) != loop_.turn()) effortBefore_ = effort;
  return effort - effortBefore_ >= share && !loop_.isResuming();
}

int Transfer::onProgress(void* self, curl_off_t, curl_off_t, curl_off_t, curl_off_t sent) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  if (transfer.bytesSent_ != sent) transfer.idleSince_ = transfer.loop_.now();
  transfer.bytesSent_ = sent;
  return 0;
}

// libcurl sends a request again, of any method and up to five times, when a kept connection ends
// before the answer's first line; here a GET or HEAD once, on a fresh connection, and nothing else
// ever. Over HTTP/2 as often as libcurl does: a server that ends a connection refuses what it has
// not looked at, and may do so again with some of that on the next.
int Transfer::maximumRequests() const {
  if (!isRepeatable(request_)) return 1;
  return expectsHTTP2_ ? 6 : 2;
}

// Called when a connection is ready for the request.
int Transfer::onRequest(void* self, char* remoteAddress, char* localAddress, int remotePort,
                        int localPort) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  if (!transfer.mayUseConnection({localAddress, remoteAddress, localPort, remotePort})) {
    return CURL_PREREQFUNC_ABORT;
  }
  if (++transfer.requestsSent_ > transfer.maximumRequests()) {
    transfer.fail(Code::networkConnectionLost, "the network connection was lost");
    return CURL_PREREQFUNC_ABORT;
  }
  const bool nextIsFresh = !transfer.expectsHTTP2_ || transfer.requestsSent_ > 1;
  transfer.handle_.set(CURLOPT_FRESH_CONNECT, nextIsFresh ? 1L : 0L);  // of a repetition
  transfer.idleSince_ = transfer.loop_.now();
  transfer.requestTime_ = currentDate();
  return CURL_PREREQFUNC_OK;
}

bool Transfer::mayUseConnection(const CurlLoop::Ends& ends) {
  const bool overTLS = request_.url.scheme() == "https";
  unaskedEnd_.reset();
  receivedBefore_.reset();
  socket_ = loop_.socketBetween(ends);
  if (!socket_) return true;
  if (!openedConnection_) {
    if (loop_.isInUse(*socket_)) return true;  // its input is that of other streams
    const UnaskedInput input = lookForInput(*socket_, overTLS);
    metUnaskedInput_ = input.kind == UnaskedInput::Kind::other;
    if (input.kind == UnaskedInput::Kind::records) unaskedEnd_ = input.end;
  }
  if (!overTLS) receivedBefore_ = bytesReceived(*socket_);
  return !metUnaskedInput_;
}

// What follows an answer without a body in the same read is lost without a word, and the rest of it
// may be yet to come.
bool Transfer::moreThanTheHeadWasRead() const {
  if (!receivedBefore_) return false;
  return bytesRead(*socket_).value_or(0) > *receivedBefore_ + head_.size();
}

bool Transfer::answerWasAskedFor() {
  if (!unaskedEnd_) return true;
  const auto read = bytesRead(*socket_);
  metUnaskedInput_ = !read || *read <= *unaskedEnd_;
  unaskedEnd_.reset();
  return !metUnaskedInput_;
}

// Input that is no HTTP at all ends the transfer without a line of a header.
bool Transfer::metUnaskedInput(CURLcode code) const {
  return metUnaskedInput_ || (unaskedEnd_ && code != CURLE_OK);
}

bool Transfer::lostSharedConnection(CURLcode code) const {
  const bool failed = code == CURLE_SEND_ERROR || code == CURLE_RECV_ERROR || code == CURLE_HTTP2;
  return failed && !error_ && isRepeatable(request_) && (expectsHTTP2_ || isMultiplexed());
}

bool Transfer::takeHeaderLine(std::string_view line) {
  switch (head_.add(line)) {
    case ResponseHead::Progress::incomplete:
      break;
    case ResponseHead::Progress::complete:
      return headIsAcceptable();
    case ResponseHead::Progress::tooLarge:
      return fail(Code::badServerResponse, headerTooLarge);
    case ResponseHead::Progress::malformed:
      return fail(Code::badServerResponse, "the server's header is malformed");
  }
  return true;
}

int Transfer::onResolve(void*, void*, void* self) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  if (!transfer.idleSince_) transfer.idleSince_ = transfer.loop_.now();
  return 0;
}

curl_socket_t Transfer::onOpenSocket(void* self, curlsocktype, curl_sockaddr* address) noexcept {
  auto& transfer = *static_cast<Transfer*>(self);
  if (!transfer.idleSince_) transfer.idleSince_ = transfer.loop_.now();
  transfer.openedConnection_ = true;
  return transfer.loop_.openSocket(*address);
}

bool Transfer::fail(Code code, std::string text) {
  if (!error_) error_ = makeError(code, std::move(text));
  return false;
}

bool Transfer::answerHasBody() const {
  const int status = head_.statusCode();
  return request_.method != "HEAD" && status != 204 && status != 304;
}

bool Transfer::headIsAcceptable() {
  responseTime_ = currentDate();
  framing_ = head_.framing(answerHasBody());
  if (framing_.malformed) {
    return fail(Code::badServerResponse, "the server's answer has no unambiguous length");
  }
  const bool claimsOtherVersion = !head_.isHTTP1() && !mayShareConnection();
  const bool isEmpty = !answerHasBody() || framing_.length == 0;
  if (framing_.lengthAndChunks || claimsOtherVersion || (isEmpty && moreThanTheHeadWasRead())) {
    handle_.set(CURLOPT_FORBID_REUSE, 1L);
  }

  // Ranges are ranges of the coded bytes, and a coding that is not known here is the caller's
  // business: both are handed over as they come, under their Content-Encoding.
  const auto coding = contentCoding(head_.fields());
  const bool isPartial = head_.statusCode() == 206;
  const bool isAcceptable = coding || callerNamesCodings_ || isPartial || !answerHasBody();
  if (!isAcceptable && namesSeveralCodings(head_.fields())) {
    return fail(Code::cannotDecodeContentData, "the server used more than one content coding");
  }
  if (coding && !isPartial) coding_ = *coding;
  if (coding_ != ContentCoding::identity) {
    head_.fields().remove("Content-Encoding");
    head_.fields().remove("Content-Length");
  }
  if (!answerHasBody()) return true;
  task_.bytesExpected = framing_.length.value_or(-1);
  const std::int64_t limit = std::min(configuration_.maximumBodySize, task_.maximumBodySize);
  if (coding_ == ContentCoding::identity && framing_.length.value_or(0) > limit) {
    return fail(Code::dataLengthExceedsMaximum, bodyTooLarge);
  }
  body_.emplace(framing_, coding_, limit);
  return true;
}

bool Transfer::takeBody(std::string_view bytes) {
  if (!body_) return true;
  const std::int64_t before = body_->received();
  const auto status = body_->add(bytes);
  task_.bytesReceived += body_->received() - before;
  switch (status) {
    case ResponseBody::Status::ok:
      if (body_->hasExcess()) handle_.set(CURLOPT_FORBID_REUSE, 1L);
      return true;
    case ResponseBody::Status::tooLarge:
      return fail(Code::dataLengthExceedsMaximum, bodyTooLarge);
    case ResponseBody::Status::badFraming:
      return fail(Code::badServerResponse, "the server's answer has malformed chunks");
    case ResponseBody::Status::badCoding:
      break;
  }
  return fail(Code::cannotDecodeContentData, "the server's answer cannot be decoded");
}

void Transfer::checkEnd() {
  const auto end = body_ ? body_->end() : ResponseBody::End::proper;
  if (!head_.isComplete() || end == ResponseBody::End::cut) {
    fail(Code::networkConnectionLost, "the network connection was lost");
  } else if (end == ResponseBody::End::codingCut) {
    fail(Code::cannotDecodeContentData, "the server's answer cannot be decoded to its end");
  }
}

void Transfer::expectHTTP2(bool known) {
  expectsHTTP2_ = known;
  if (!known && mayShareConnection()) idleSince_ = Clock::now();
}

bool Transfer::mayShareConnection() const {
  return offersHTTP2() && request_.url.scheme() == "https";
}

// What a status line says of HTTP/2 counts only where that may be spoken.
bool Transfer::isMultiplexed() const {
  if (!mayShareConnection()) return false;
  long version = CURL_HTTP_VERSION_NONE;
  curl_easy_getinfo(handle_.get(), CURLINFO_HTTP_VERSION, &version);
  return version >= CURL_HTTP_VERSION_2_0;
}

// Without length, chunks and coding the end may be a cut: of the connection, or of an HTTP/2
// stream, which RST_STREAM(NO_ERROR) ends with every sign of a proper end.
bool Transfer::bodyIsWhole() const {
  return !body_ || !framing_.endsWithConnection || body_->isCoded();
}

TransferResult Transfer::finish(CURLcode code) {
  if (!error_ && !head_.isComplete() && isOverflow(code)) {
    fail(Code::badServerResponse, headerTooLarge);
  }
  if (!error_ && code != CURLE_OK) error_ = errorForCode(code, handle_.get());
  if (!error_) checkEnd();
  return result();
}

TransferResult Transfer::abandon(URLError error) {
  error_ = std::move(error);
  return result();
}

TransferResult Transfer::result() {
  TransferResult result;
  if (head_.isComplete()) {
    result.response = HTTPURLResponse{request_.url, head_.statusCode(), std::move(head_.fields())};
  }
  if (!error_) {
    if (body_) result.body = Data(body_->take());
    result.complete = bodyIsWhole();
  }
  result.multiplexed = isMultiplexed();
  result.error = std::move(error_);
  result.requestTime = requestTime_;
  result.responseTime = responseTime_;
  return result;
}

}  // namespace paperloom::internal
