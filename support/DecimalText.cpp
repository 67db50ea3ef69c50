#include <netro/SocketData.h>

#include <charconv>
#include <iterator>

namespace netro {
namespace {

template <class Number, std::size_t room>
std::size_t Write(Number value, char (&text)[room]) {
  return static_cast<std::size_t>(std::to_chars(text, std::end(text), value).ptr - text);
}

}  // namespace

DecimalText::DecimalText(long long Value) : size_(Write(Value, text_)) {}
DecimalText::DecimalText(unsigned long long Value) : size_(Write(Value, text_)) {}
DecimalText::DecimalText(double Value) : size_(Write(Value, text_)) {}

}  // namespace netro
