// The kinds of data that SocketCls sends without a copy, and how they become bytes: text and bytes
// as they are, a char or std::uint8_t as one byte, any other number as decimal text.
#pragma once

#include <netro/Export.h>
#include <netro/Types.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>

namespace netro {

template <class T>
concept Arithmetic = std::is_arithmetic_v<T>;

/// An integer that is not turned into a std::int32_t by promotion.
template <class T>
concept WideInteger = std::integral<T> && sizeof(T) >= sizeof(std::int32_t);

template <class T>
concept DataView = std::convertible_to<T, std::string_view> ||
    std::convertible_to<T, const char*> || std::convertible_to<T, std::span<const std::uint8_t>>;

/// What becomes text or bytes by a conversion of its own only, which may make a copy.
template <class T>
concept ConvertsToData = !DataView<const T&> && (std::convertible_to<const T&, std::string> ||
                                                 std::convertible_to<const T&, Bytes>);

/// The text of what converts to one, else its bytes.
template <ConvertsToData T>
std::conditional_t<std::convertible_to<const T&, std::string>, std::string, Bytes> DataOf(
    const T& Value) {
  return Value;
}

/// The decimal text of a number: of a floating-point one the shortest that means the same double.
class NETRO_EXPORT DecimalText {
 public:
  /// Of the usual kinds of numbers.
  explicit DecimalText(long long Value);
  explicit DecimalText(unsigned long long Value);
  explicit DecimalText(double Value);
  /// Of any kind of number.
  template <Arithmetic T>
  static DecimalText Of(T Value) {
    if constexpr (std::floating_point<T>) {
      return DecimalText(static_cast<double>(Value));
    } else if constexpr (std::is_signed_v<T>) {
      return DecimalText(static_cast<long long>(Value));
    } else {
      return DecimalText(static_cast<unsigned long long>(Value));
    }
  }

  /// Valid as long as this object.
  std::string_view View() const { return {text_, size_}; }

 private:
  char text_[32];
  std::size_t size_;
};

}  // namespace netro
