// The outcome of an HTTPQuery: the answer taken apart, or the failure.
#pragma once

#include <netro/HTTPCls.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro::tool {

struct HttpResult {
  double seconds = 0;
  bool timedOut = false;
  std::int32_t errorNumber = 0;  // 0: there is an answer
  std::string errorText;

  std::int32_t status = 0;
  std::string reason;
  std::string header;  // status line and fields
  std::string contentType;
  std::int64_t retryAfter = -1;  // seconds that the server asks for
  double bodyLength = 0;
  double receivedBytes = 0;

  std::string finalUrl;
  std::vector<HTTPMoment> timeline;
  TlsInfo tls;  // without a protocol: there was none

  std::string body;          // when it is in memory
  std::string file;          // when it is in a file
  bool isTemporary = false;  // the file goes when the body has been read
  bool isPrinted = false;    // at least the beginning
  bool isReaderGone = false;  // while it was printed

  /// True when the timeline has it.
  bool Has(std::string_view what) const;
  bool IsAnswer() const { return errorNumber == 0; }
  bool IsGood() const { return IsAnswer() && status < 400; }
};

/// Calls HTTPQuery and takes the answer apart. A body in a file counts as temporary unless the file
/// was named beforehand.
HttpResult Query(HTTPCls& http);

using HeaderFields = std::vector<std::pair<std::string, std::string>>;

/// The fields of a header (RFC 9112, section 5), in order; lines without a colon are left out.
HeaderFields FieldsOf(std::string_view header);

/// Hands over the body block by block until `take` returns false; removes a temporary file. Throws
/// std::system_error when the file cannot be read.
void ReadBody(const HttpResult& result, const std::function<bool(std::string_view)>& take);

std::string WholeBody(const HttpResult& result);

/// Removes a temporary file that nobody read.
void DiscardBody(const HttpResult& result);

}  // namespace netro::tool
