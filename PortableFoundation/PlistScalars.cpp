// The functions here check the form of reals and dates themselves before the standard library converts their
// digits, because from_chars() and strtod_l() accept other forms as well: "nan(1)", hexadecimal reals and
// leading white space. Nothing depends on the locale. Functions that begin with Take remove what they have
// read from the front of a view.

#include "PortableFoundation/PlistScalars.h"

#ifdef __APPLE__
#include <stdlib.h>
#include <xlocale.h>
#endif

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <limits>
#include <memory>
#include <new>

#include "PortableFoundation/Digits.h"
#include "PortableFoundation/PlistDate.h"

namespace zekara {
namespace {

bool Take(std::string_view& text, char c) noexcept {
  if (!text.starts_with(c)) return false;
  text.remove_prefix(1);
  return true;
}

// Consumes an optional sign; returns true if it was '-'.
bool TakeSign(std::string_view& text) noexcept {
  if (Take(text, '-')) return true;
  Take(text, '+');
  return false;
}

std::string_view TakeDigits(std::string_view& text) noexcept {
  const auto end = std::find_if_not(text.begin(), text.end(), IsDigit);
  const std::string_view digits = text.substr(0, static_cast<std::size_t>(end - text.begin()));
  text.remove_prefix(digits.size());
  return digits;
}

// Consumes exactly `count` digits; returns false if there are fewer.
template <class Number>
bool TakeNumber(std::string_view& text, std::size_t count, Number& number) noexcept {
  if (text.size() < count || !std::all_of(text.begin(), text.begin() + count, IsDigit)) return false;
  std::from_chars(text.data(), text.data() + count, number);
  text.remove_prefix(count);
  return true;
}

// An unsigned decimal number in parts: "12.50e+3" is 12, 50, false and 3.
struct Decimal {
  std::string_view whole;
  std::string_view fraction;
  bool hasNegativeExponent = false;
  std::string_view exponent;

  // Splits `text`; returns false if it is not a decimal number as a whole.
  bool parse(std::string_view text) noexcept {
    whole = TakeDigits(text);
    if (Take(text, '.')) fraction = TakeDigits(text);
    if (whole.empty() && fraction.empty()) return false;
    if (!Take(text, 'e') && !Take(text, 'E')) return text.empty();
    hasNegativeExponent = TakeSign(text);
    exponent = TakeDigits(text);
    return !exponent.empty() && text.empty();
  }

  // For a number outside the range of double: returns true if it is too large, and false if it is too small.
  // Compares the place of the first digit that is not zero with the exponent, which may have any length.
  bool isLarge() const noexcept {
    constexpr auto kNone = std::string_view::npos;
    const std::size_t firstOfWhole = whole.find_first_not_of('0');
    const std::size_t firstOfFraction = fraction.find_first_not_of('0');
    const double places = firstOfWhole != kNone      ? static_cast<double>(whole.size() - firstOfWhole)
                          : firstOfFraction != kNone ? -static_cast<double>(firstOfFraction)
                                                     : 0;
    double power = 0;
    for (const char digit : exponent) power = power * 10 + (digit - '0');
    return places > (hasNegativeExponent ? power : -power);
  }
};

constexpr double kInfinity = std::numeric_limits<double>::infinity();

// Converts `text`, whose parts are in `decimal`, to a double; numbers outside its range become infinity or
// zero. Returns false if memory runs out.
#ifdef __APPLE__
// The C++ library there has std::from_chars() for real numbers only from macOS 26 on. strtod_l() uses the "C"
// locale if it is given none.
bool ReadMagnitude(std::string_view text, const Decimal&, double& magnitude) noexcept {
  const std::unique_ptr<char[]> terminated(new (std::nothrow) char[text.size() + 1]());
  if (!terminated) return false;
  text.copy(terminated.get(), text.size());
  magnitude = strtod_l(terminated.get(), nullptr, nullptr);
  return true;
}
#else
bool ReadMagnitude(std::string_view text, const Decimal& decimal, double& magnitude) noexcept {
  const auto result = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (result.ec == std::errc::result_out_of_range) magnitude = decimal.isLarge() ? kInfinity : 0;
  return true;
}
#endif

}  // namespace

std::string_view TrimPlistSpace(std::string_view text) noexcept {
  while (!text.empty() && IsPlistSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && IsPlistSpace(text.back())) text.remove_suffix(1);
  return text;
}

bool IsPlistWord(std::string_view text, std::string_view word) noexcept {
  return std::equal(text.begin(), text.end(), word.begin(), word.end(), [](char c, char small) {
    return c == small || (c >= 'A' && c <= 'Z' && c + ('a' - 'A') == small);
  });
}

// The magnitude is an unsigned number, so that values up to 2^64-1 fit and from_chars() rejects a second
// sign.
Plist ParsePlistInteger(std::string_view text) noexcept {
  const bool isNegative = TakeSign(text);
  const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
  if (isHexadecimal) text.remove_prefix(2);
  std::uint64_t magnitude = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, failure] = std::from_chars(text.data(), end, magnitude, isHexadecimal ? 16 : 10);
  if (failure != std::errc() || stop != end) return {};
  if (!isNegative) return magnitude;
  if (magnitude > std::uint64_t{1} << 63) return {};
  return static_cast<std::int64_t>(0 - magnitude);
}

Plist ParsePlistReal(std::string_view text) noexcept {
  if (IsPlistWord(text, "nan")) return std::numeric_limits<double>::quiet_NaN();
  const double sign = TakeSign(text) ? -1 : 1;
  if (IsPlistWord(text, "inf") || IsPlistWord(text, "infinity")) return sign * kInfinity;
  Decimal decimal;
  if (!decimal.parse(text)) return {};
  double magnitude = 0;
  return ReadMagnitude(text, decimal, magnitude) ? Plist(sign * magnitude) : Plist();
}

// The first "-" behind the sign ends the year, whose length varies; all other fields have two digits.
Plist ParsePlistDate(std::string_view text) noexcept {
  PlistDate date{};
  const bool isNegative = Take(text, '-');
  const std::size_t yearDigits = std::min(text.find('-'), text.size());
  if (yearDigits < 1 || yearDigits > 9) return {};
  const bool hasForm = TakeNumber(text, yearDigits, date.year) && Take(text, '-') &&
                       TakeNumber(text, 2, date.month) && Take(text, '-') && TakeNumber(text, 2, date.day) &&
                       Take(text, 'T') && TakeNumber(text, 2, date.hour) && Take(text, ':') &&
                       TakeNumber(text, 2, date.minute) && Take(text, ':') &&
                       TakeNumber(text, 2, date.second) && text == "Z";
  if (isNegative) date.year = -date.year;
  if (!hasForm || !date.isValid()) return {};
  return Plist::date(date.toSeconds());
}

void AppendPlistReal(std::string& text, double real) {
  if (std::isnan(real)) {
    text += "nan";
  } else if (std::isinf(real)) {
    text += real < 0 ? "-infinity" : "+infinity";
  } else if (real == 0) {
    text += std::signbit(real) ? "-0.0" : "0.0";
  } else {
    char digits[32];
    const auto end = std::to_chars(digits, digits + sizeof digits, real, std::chars_format::general, 17).ptr;
    text.append(digits, end);
  }
}

}  // namespace zekara
