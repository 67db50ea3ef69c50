// Continuing a body that was begun earlier (RFC 9110, section 14): what the request says, and what
// an answer means for the bytes that are there. Pure. Thread: any.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace netro {

/// What is known of a body of which the beginning is there. The texts are as its answer had them,
/// empty where it had none.
struct PartialBody {
  std::uint64_t have = 0;    // bytes
  std::string entityTag;     // ETag
  std::string lastModified;  // Last-Modified
  std::string date;          // Date
  bool insist = false;       // ask for the rest even without a validator
};

/// The fields Range and, where there is a strong validator, If-Range. None when the rest cannot be
/// asked for without danger of joining two bodies: nothing is there, or, without `insist`, neither
/// a strong entity tag nor a date that identifies the body. Then the request is an ordinary one.
std::vector<std::pair<std::string, std::string>> ResumeFields(const PartialBody& partial);

/// What counts of an answer to that request.
struct RangeAnswer {
  std::int32_t status = 0;
  std::string contentRange;
  std::string contentType;
  std::string entityTag;
  std::string lastModified;
  std::optional<std::uint64_t> contentLength;
  std::string contentCoding = {};
};

enum class ResumeStep {
  Continue,    // the body goes behind what is there
  StartAgain,  // the body is the whole one: what is there gives way to it
  Complete,    // there is no more; the body of this answer is none of it
  AskAgain,    // what is there is of no use: a new request without Range
  Refuse,      // the answer contradicts itself or the request
  Otherwise,   // a status that says nothing of ranges; what is there stays as it is
};

struct ResumeDecision {
  ResumeStep step = ResumeStep::Otherwise;
  std::optional<std::uint64_t> total;  // bytes of the whole body, when the answer tells
  std::string error;                   // Refuse: why
};

ResumeDecision DecideResume(const PartialBody& partial, const RangeAnswer& answer);

/// "bytes 0-499/1234", "bytes 0-499/*", "bytes */1234". First and last only where given.
struct ContentRange {
  bool satisfied = false;  // first and last are given
  std::uint64_t first = 0;
  std::uint64_t last = 0;
  std::optional<std::uint64_t> total;
};

/// Nothing when it is none: another unit, numbers above 2^53, a last before the first or behind the
/// total.
std::optional<ContentRange> ReadContentRange(std::string_view value);

/// True for a strong entity tag (RFC 9110, section 8.8.3).
bool IsStrongTag(std::string_view tag);

}  // namespace netro
