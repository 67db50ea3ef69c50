// Just enough HTTP for the servers of the tour.

#include "tour/TourHttpMessage.h"

#include <charconv>

#include "terminal/Encoding.h"
#include "tour/TourServers.h"

namespace netro::tool {

std::optional<TourRequest> TakeRequest(std::string& input) {
  const std::size_t end = input.find("\r\n\r\n");
  if (end == input.npos) return std::nullopt;
  TourRequest request;
  const std::size_t firstLine = input.find("\r\n");
  request.header = input.substr(firstLine + 2, end - firstLine);
  const std::size_t blank = input.find(' ');
  request.method = input.substr(0, blank);
  request.target = input.substr(blank + 1, input.find(' ', blank + 1) - blank - 1);

  const std::string length = FieldOf(request, "Content-Length");
  std::size_t size = 0;
  std::from_chars(length.data(), length.data() + length.size(), size);
  if (input.size() < end + 4 + size) return std::nullopt;
  request.body = input.substr(end + 4, size);
  // A client of this library ends GET and HEAD with one line end more; it belongs to the request.
  const bool extraLine = size == 0 && input.compare(end + 4, 2, "\r\n") == 0;
  request.bytes = input.substr(0, end + 4 + size + (extraLine ? 2 : 0));
  input.erase(0, request.bytes.size());
  return request;
}

std::string FieldOf(const TourRequest& request, std::string_view name) {
  const std::string header = "\r\n" + request.header;
  const std::string begin = "\r\n" + std::string(name) + ": ";
  const std::size_t at = header.find(begin);
  if (at == header.npos) return {};
  const std::size_t value = at + begin.size();
  return header.substr(value, header.find("\r\n", value) - value);
}

std::string MakeAnswer(std::string_view status, std::string_view fields, std::string_view body) {
  std::string answer = "HTTP/1.1 ";
  answer.append(status).append("\r\n").append(fields);
  answer += "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n";
  return answer.append(body);
}

bool IsTourUser(std::string_view credentials) {
  return credentials == "Basic " + Base64(std::string(kTourUser) + ":" + kTourPassword);
}

}  // namespace netro::tool
