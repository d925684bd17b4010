#include "zkaconfig/Json.h"

#include <nlohmann/json.hpp>
#include <utility>

#include "PortableFoundation/Base64.h"
#include "PortableFoundation/PlistDate.h"
#include "zkaconfig/Failure.h"
#include "zkaconfig/Text.h"

// A value is converted to the JSON library's own tree and back, kind by kind. The library keeps the order of
// keys (ordered_json), which the configuration file keeps as well.

namespace zekara {
namespace {

using Json = nlohmann::ordered_json;

Json JsonFrom(const Plist& value);

Json ArrayFrom(const Plist& array) {
  Json json = Json::array();
  for (const Plist& element : array.elements()) json.push_back(JsonFrom(element));
  return json;
}

// The keys of a dictionary differ, so none is looked for before it is added.
Json ObjectFrom(const Plist& dictionary) {
  Json json = Json::object();
  auto& entries = json.get_ref<Json::object_t&>();
  for (const auto& [key, value] : dictionary.entries())
    entries.emplace_back(key.description(), JsonFrom(value));
  return json;
}

Json IntegerFrom(const Plist& number) {
  return number.isBeyondSigned() ? Json(number.unsignedLongLongValue()) : Json(number.longLongValue());
}

Json JsonFrom(const Plist& value) {
  std::string text;
  switch (value.kind()) {
    case Plist::Kind::Nil:
      return nullptr;
    case Plist::Kind::String:
      return std::string(value.string());
    case Plist::Kind::Integer:
      return IntegerFrom(value);
    case Plist::Kind::Real:
      return value.doubleValue();
    case Plist::Kind::Boolean:
      return value.boolValue();
    case Plist::Kind::Data:
      AppendBase64(text, value.bytes());
      return text;
    case Plist::Kind::Date:
      PlistDate::fromSeconds(value.secondsSince1970()).appendTo(text, 'T', "Z");
      return text;
    case Plist::Kind::Array:
      return ArrayFrom(value);
    case Plist::Kind::Dictionary:
      return ObjectFrom(value);
  }
  return nullptr;
}

// The depth has been limited while the text was parsed, so the recursion is bounded.
Plist PlistFrom(const Json& json, const std::string& name) {
  switch (json.type()) {
    case Json::value_t::string:
      return json.get_ref<const std::string&>();
    case Json::value_t::boolean:
      return json.get<bool>();
    case Json::value_t::number_integer:
      return json.get<std::int64_t>();
    case Json::value_t::number_unsigned:
      return json.get<std::uint64_t>();
    case Json::value_t::number_float:
      return json.get<double>();
    case Json::value_t::array: {
      Plist array = Plist::array();
      for (const Json& element : json) array.addObject(PlistFrom(element, name));
      return array;
    }
    case Json::value_t::object: {
      Plist dictionary = Plist::dictionary();
      for (const auto& [key, value] : json.items()) dictionary.setObject_forKey(PlistFrom(value, name), key);
      return dictionary;
    }
    default:
      throw Failure(ExitStatus::Unreadable, name + " holds null, which no setting can be",
                    "The tool cannot remove a setting; \"zkaconfig reset\" writes its default.");
  }
}

// Returns the parser's own text, such as "parse error at line 1, column 2: ...", without the library's number
// for it.
std::string Reason(const Json::exception& error) {
  std::string_view text = error.what();
  text.remove_prefix(std::min(text.size(), text.find("] ") + 2));
  return Printable(text);
}

}  // namespace

// `true` has the library escape everything that is not ASCII.
std::string JsonText(const Plist& value) {
  constexpr int kIndentation = 2;
  return JsonFrom(value).dump(kIndentation, ' ', true, Json::error_handler_t::replace);
}

Plist PlistFromJson(std::string_view text, const std::string& name) {
  // Called at the start of a container with the number of those around it.
  const auto limitDepth = [&](int depth, Json::parse_event_t event, const Json&) {
    const bool isStart =
        event == Json::parse_event_t::array_start || event == Json::parse_event_t::object_start;
    if (!isStart || depth < kMaximumPlistDepth) return true;
    throw Failure(ExitStatus::Unreadable, name + " is nested too deeply");
  };
  try {
    return PlistFrom(Json::parse(text, limitDepth), name);
  } catch (const Json::exception& error) {
    throw Failure(ExitStatus::Unreadable, name + " is not JSON: " + Reason(error));
  }
}

}  // namespace zekara
