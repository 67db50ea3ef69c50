#include <netro/HTTPOptions.h>

namespace netro {

void HTTPOptions::BodyFile(std::string Path) {
  ClearBody();
  options_.bodyKind = BodyKind::File;
  options_.bodyFile = std::move(Path);
}

void HTTPOptions::BodyFunction(HTTPBodyFunction Read, std::optional<std::uint64_t> Length,
                               std::function<bool()> Rewind) {
  ClearBody();
  options_.bodyKind = BodyKind::Function;
  options_.bodyFunction = std::move(Read);
  options_.bodyLength = Length;
  options_.bodyRewind = std::move(Rewind);
}

void HTTPOptions::AddFormField(std::string Name, std::string Value) {
  if (options_.bodyKind != BodyKind::Form) ClearBody();
  options_.bodyKind = BodyKind::Form;
  options_.form.push_back({std::move(Name), std::move(Value), false, {}, {}, {}});
}

void HTTPOptions::AddFormFile(std::string Name, std::string Path, std::string ContentType,
                              std::string FileName) {
  if (options_.bodyKind != BodyKind::Form) ClearBody();
  options_.bodyKind = BodyKind::Form;
  options_.form.push_back(
      {std::move(Name), {}, true, std::move(Path), std::move(ContentType), std::move(FileName)});
}

void HTTPOptions::ClearBody() {
  options_.bodyKind = BodyKind::PostData;
  options_.bodyFile.clear();
  options_.bodyFunction = nullptr;
  options_.bodyLength.reset();
  options_.bodyRewind = nullptr;
  options_.form.clear();
}

void HTTPOptions::AddHostAddress(std::string Host, std::int32_t Port, std::string Address) {
  options_.hostAddresses.push_back({std::move(Host), Port, std::move(Address)});
}

}  // namespace netro
