#pragma once

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "tests/runtime/model/attribute_table.h"
#include "tests/utility/half_tables.h"

namespace marlo::test {

/// One object in the forms that the attribute table gives it.
struct Forms {
  std::string json_given;   ///< a text to read
  std::string json;         ///< what the object read from it writes
  std::string bytes;        ///< what that object writes in the binary form, without the header
  std::string json_after;   ///< what an object read from these bytes writes as JSON
  std::string bytes_after;  ///< what that object writes in the binary form
};

/// Makes random objects from the attribute table alone, without the library.
class FormsMaker {
 public:
  /// @param version the protocol version of the bytes and of `json_given`
  explicit FormsMaker(uint32_t seed, uint32_t version = 20015) : random_(seed), version_(version) {}

  /// An object of a class. `type_code` is what a layer's "type" holds.
  Forms object(const std::string& class_name, int type_code = -1) {
    const AttributeTable& table = AttributeTable::get();
    std::vector<Forms> members;
    for (const Attribute& attribute : table.attributes_of(class_name)) {
      if (!attribute.is_in(version_)) {
        // Old data doesn't have it: the object keeps its default and writes it ever after.
        members.push_back(absent(attribute));
      } else if (attribute.key == "serializable_type") {
        members.push_back(text(attribute.key, table.of(class_name).short_name()));
      } else if (attribute.key == "type" && type_code >= 0) {
        members.push_back(number(attribute.key, static_cast<uint64_t>(type_code), 2));
      } else {
        visit(attribute, members);
      }
    }
    return braced(members);
  }

  /// The root of a file: the version, then the object.
  Forms file(const std::string& class_name) {
    Forms root = object(class_name);
    const auto with_version = [](const std::string& json, uint32_t number) {
      std::string head = "{\"serialization_protocol_version\":" + std::to_string(number);
      return head + (json == "{}" ? "" : ",") + json.substr(1);
    };
    root.json_given = with_version(root.json_given, version_);
    root.json = with_version(root.json, 20015);
    root.json_after = with_version(root.json_after, 20015);
    root.bytes = little_endian(version_, 4) + root.bytes;
    root.bytes_after = little_endian(20015, 4) + root.bytes_after;
    return root;
  }

  std::mt19937& random() { return random_; }

  static std::string little_endian(uint64_t value, int width) {
    std::string bytes;
    for (int i = 0; i < width; ++i) bytes += static_cast<char>(value >> (8 * i));
    return bytes;
  }

  /// The Base64 text of floats.
  static std::string base64_of(const std::vector<float>& numbers) {
    static constexpr char kDigits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes(numbers.size() * 4, '\0');
    if (!numbers.empty()) std::memcpy(bytes.data(), numbers.data(), bytes.size());
    std::string encoded;
    for (size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
      unsigned digit = 0;
      for (size_t b = bit; b < bit + 6; ++b) {
        const unsigned byte = b / 8 < bytes.size() ? static_cast<unsigned char>(bytes[b / 8]) : 0;
        digit = digit << 1 | (byte >> (7 - b % 8) & 1);
      }
      encoded += kDigits[digit];
    }
    while (encoded.size() % 4 != 0) encoded += '=';
    return encoded;
  }

 private:
  void visit(const Attribute& attribute, std::vector<Forms>& members) {
    const std::string& type = attribute.type_in(version_);
    const std::string& key = attribute.key;
    const size_t colon = type.find(':');
    const std::string kind = type.substr(0, colon);
    const std::string of_class = colon == std::string::npos ? "" : type.substr(colon + 1);
    if (kind == "object") {
      members.push_back(keyed(key, object(of_class)));
    } else if (kind == "map") {
      const std::vector<std::string> ids = some_ids();
      members.push_back(texts(key, ids));
      for (const std::string& id : ids) members.push_back(keyed(id, object(of_class)));
    } else if (kind == "layers") {
      visit_layers(key, members);
    } else if (kind == "samplings") {
      const uint64_t count = random_() % 4;
      members.push_back(number(key, count, 2));
      for (uint64_t i = 0; i < count; ++i) {
        members.push_back(keyed(std::to_string(i), object("TensorDimemsionSamplingInfo")));
      }
    } else if (kind == "param") {
      std::vector<std::string> names = AttributeTable::get().names_with_prefix("InferenceParam");
      names[0].clear();  // none, in the place of the base class
      const std::string name = names[random_() % names.size()];
      members.push_back(text(key, name));
      if (!name.empty()) members.push_back(keyed("infer_param", object(name)));
    } else if (type != attribute.type) {
      // Narrower in old data, and written in its later width.
      const uint32_t narrow = static_cast<uint32_t>(random_());
      members.push_back(number(key, narrow, 4));
      members.back().bytes_after = little_endian(narrow, 8);
    } else {
      members.push_back(value(type, key));
    }
  }

  void visit_layers(const std::string& key, std::vector<Forms>& members) {
    const std::vector<std::string> classes = AttributeTable::get().layer_classes();
    const std::vector<std::string> ids = some_ids();
    std::vector<Forms> layers;
    std::vector<Forms> codes;
    for (const std::string& id : ids) {
      const std::string& layer = classes[random_() % classes.size()];
      const int code = AttributeTable::get().of(layer).code;
      codes.push_back(number("", static_cast<uint64_t>(code), 2));
      layers.push_back(keyed(id, object(layer, code)));
    }
    members.push_back(texts(key, ids));
    members.push_back(keyed("squential_types", list(codes)));
    members.insert(members.end(), layers.begin(), layers.end());
  }

  Forms value(const std::string& type, const std::string& key) {
    if (type == "bool") {
      const bool on = random_() % 2 != 0;
      return same(key, on ? "true" : "false", std::string(1, on ? '\1' : '\0'));
    }
    if (type == "string") return text(key, some_text());
    if (type == "f32") return float_number(key, some_float());
    if (type == "half") return half_number(key, static_cast<uint16_t>(random_() % 0x7C00));
    if (type == "blob") return blob(key);
    if (type == "u16ss") return keyed(key, doubled_lists());
    std::vector<Forms> items(random_() % 4);
    if (type == "strings") {
      for (Forms& item : items) item = text("", some_text());
    } else if (type == "blobs") {
      for (Forms& item : items) item = blob("");
    } else if (type.back() == 's') {
      for (Forms& item : items) item = value(type.substr(0, type.size() - 1), "");
    } else {
      return some_integer(type, key);
    }
    return keyed(key, list(items));
  }

  // Read as JSON, an inner list is preceded by as many zeros as it has numbers. Read in the binary
  // form, as many empty lists as there are lists stand first, and empty ones aren't kept.
  Forms doubled_lists() {
    std::vector<std::vector<uint16_t>> lists(random_() % 3);
    std::string given, json, data, json_after, data_after;
    size_t kept = 0;
    for (auto& inner : lists) {
      for (size_t i = random_() % 3; i > 0; --i) inner.push_back(static_cast<uint16_t>(random_()));
      std::string numbers, zeros, inner_bytes;
      for (const uint16_t entry : inner) {
        numbers += (numbers.empty() ? "" : ",") + std::to_string(entry);
        zeros += "0,";
        inner_bytes += little_endian(entry, 2);
      }
      const std::string inner_data =
          little_endian(2 * inner.size(), 8) + std::string(2 * inner.size(), '\0') + inner_bytes;
      given += (given.empty() ? "[" : ",[") + numbers + "]";
      json += (json.empty() ? "[" : ",[") + zeros + numbers + "]";
      data += inner_data;
      if (inner.empty()) continue;
      ++kept;
      json_after += ",[" + zeros + numbers + "]";
      data_after += inner_data;
    }
    std::string empties, empty_data;
    for (size_t i = 0; i < lists.size(); ++i) {
      empties += i == 0 ? "[]" : ",[]";
      empty_data += little_endian(0, 8);
    }
    return {"[" + given + "]", "[" + json + "]", little_endian(lists.size(), 8) + data,
            "[" + empties + json_after + "]",
            little_endian(lists.size() + kept, 8) + empty_data + data_after};
  }

  Forms blob(const std::string& key) {
    std::vector<float> numbers(random_() % 5);
    std::vector<float> truncated;
    std::string halves;
    for (float& entry : numbers) {
      entry = std::ldexp(static_cast<float>(random_()), -static_cast<int>(random_() % 48));
      if (random_() % 2 != 0) entry = -entry;
      const uint16_t bits = half_bits_of(entry);
      truncated.push_back(half_value_of(bits));
      halves += little_endian(bits, 2);
    }
    const std::string data = little_endian(numbers.size(), 8) + halves;
    const std::string before = quoted(base64_of(numbers));
    const std::string after = quoted(base64_of(truncated));
    return keyed(key, {before, before, data, after, data});
  }

  Forms some_integer(const std::string& type, const std::string& key) {
    const int width = std::stoi(type.substr(1)) / 8;
    const uint64_t mask = ~uint64_t{0} >> (64 - 8 * width);
    uint64_t bits = (uint64_t{random_()} << 32 | random_()) & mask;
    if (random_() % 8 == 0) bits = mask;
    if (random_() % 8 == 0) bits = mask / 2 + 1;
    if (random_() % 8 == 0) bits = 0;
    std::string digits = std::to_string(bits);
    if (type[0] == 'i' && bits > mask / 2) digits = "-" + std::to_string(mask - bits + 1);
    if (digits == "-0") digits = "-9223372036854775808";
    return same(key, digits, little_endian(bits, width));
  }

  float some_float() {
    const float magnitude =
        std::ldexp(static_cast<float>(random_()), static_cast<int>(random_() % 200) - 130);
    return random_() % 2 != 0 ? magnitude : -magnitude;
  }

  Forms float_number(const std::string& key, float entry) {
    uint32_t bits;
    std::memcpy(&bits, &entry, sizeof bits);
    return same(key, digits_of(entry), little_endian(bits, 4));
  }

  Forms half_number(const std::string& key, uint16_t bits) {
    return same(key, digits_of(half_value_of(bits)), little_endian(bits, 2));
  }

  Forms absent(const Attribute& attribute) {
    Forms forms;
    if (attribute.type.rfind("object:", 0) == 0) {
      // Nothing here is nested in a late object but what its constructor makes.
      forms.json = forms.json_after = quoted(attribute.key) + ":" + kEmptyConfiguration;
      forms.bytes_after = std::string(16, '\0');
      return forms;
    }
    const std::string& stated = attribute.default_text;
    Forms present;
    if (attribute.type == "string" || attribute.type == "blob") {
      present = text(attribute.key, stated);
    } else {
      const int width = std::stoi(attribute.type.substr(1)) / 8;
      present = same(attribute.key, stated,
                     little_endian(static_cast<uint64_t>(std::stoll(stated)), width));
    }
    forms.json = forms.json_after = present.json;
    forms.bytes_after = present.bytes;
    return forms;
  }

  std::vector<std::string> some_ids() {
    std::vector<std::string> ids(random_() % 4);
    for (size_t i = 0; i < ids.size(); ++i) ids[i] = "id " + std::to_string(i) + some_text();
    return ids;
  }

  std::string some_text() {
    static const std::string pieces[] = {"a",  "B",  "7", " ",        "\"",
                                         "\\", "\n", "/", "\xC3\xA9", "_"};
    std::string words;
    for (size_t i = random_() % 9; i > 0; --i) words += pieces[random_() % std::size(pieces)];
    return words;
  }

  static std::string quoted(const std::string& words) {
    std::string json = "\"";
    for (const char c : words) {
      if (c == '\n') {
        json += "\\n";
      } else {
        if (c == '"' || c == '\\') json += '\\';
        json += c;
      }
    }
    return json + "\"";
  }

  static std::string digits_of(float entry) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.17g", static_cast<double>(entry));
    std::string json = digits;
    if (json.find_first_of(".e") == std::string::npos) json += ".0";
    return json;
  }

  static Forms same(const std::string& key, const std::string& json, const std::string& bytes) {
    return keyed(key, {json, json, bytes, json, bytes});
  }

  static Forms number(const std::string& key, uint64_t value, int width) {
    return same(key, std::to_string(value), little_endian(value, width));
  }

  static Forms text(const std::string& key, const std::string& words) {
    return same(key, quoted(words), little_endian(words.size(), 8) + words);
  }

  static Forms texts(const std::string& key, const std::vector<std::string>& words) {
    std::vector<Forms> items;
    for (const std::string& word : words) items.push_back(text("", word));
    return keyed(key, list(items));
  }

  // An element of a list has no key.
  static Forms keyed(const std::string& key, Forms forms) {
    if (key.empty()) return forms;
    for (std::string* json : {&forms.json_given, &forms.json, &forms.json_after}) {
      *json = quoted(key) + ":" + *json;
    }
    return forms;
  }

  static Forms list(const std::vector<Forms>& items) {
    Forms all = joined(items, '[', ']');
    all.bytes = little_endian(items.size(), 8) + all.bytes;
    all.bytes_after = little_endian(items.size(), 8) + all.bytes_after;
    return all;
  }

  static Forms braced(const std::vector<Forms>& members) { return joined(members, '{', '}'); }

  static Forms joined(const std::vector<Forms>& parts, char open, char close) {
    Forms all;
    for (const Forms& part : parts) {
      append(all.json_given, part.json_given);
      append(all.json, part.json);
      append(all.json_after, part.json_after);
      all.bytes += part.bytes;
      all.bytes_after += part.bytes_after;
    }
    for (std::string* json : {&all.json_given, &all.json, &all.json_after}) {
      *json = open + *json + close;
    }
    return all;
  }

  static void append(std::string& all, const std::string& part) {
    if (part.empty()) return;
    if (!all.empty()) all += ',';
    all += part;
  }

  static constexpr char kEmptyConfiguration[] = "{\"summary\":\"\",\"squential_ids\":[]}";

  std::mt19937 random_;
  uint32_t version_;
};

}  // namespace marlo::test
