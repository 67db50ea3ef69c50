// Just enough HTTP (RFC 9112) for the servers of the tour, which serve only the tour itself.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace netro::tool {

struct TourRequest {
  std::string bytes;  // as they came
  std::string method;
  std::string target;
  std::string header;  // "Name: value" lines, each with its line end
  std::string body;
};

/// Takes a complete request off the front of `input`; nothing while it is incomplete.
std::optional<TourRequest> TakeRequest(std::string& input);

/// The value of a field; empty when it is missing. Case counts.
std::string FieldOf(const TourRequest& request, std::string_view name);

/// An answer with Content-Length. `fields` are further lines, each with its line end.
std::string MakeAnswer(std::string_view status, std::string_view fields, std::string_view body);

/// True when the credentials of the tour's user stand in a value as "Basic QWxh...".
bool IsTourUser(std::string_view credentials);

}  // namespace netro::tool
