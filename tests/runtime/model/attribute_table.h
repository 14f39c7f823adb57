#pragma once

#include <cstdint>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/paths.h"

namespace marlo::test {

/// One line of tests/data/attributes.txt.
struct Attribute {
  std::string type;
  std::string key;
  bool has_default = false;
  std::string default_text;
  uint32_t since = 0;    // lowest protocol version that has it
  std::string old_type;  // its type before version `changed_in`
  uint32_t changed_in = 0;

  bool is_in(uint32_t version) const { return version >= since; }
  const std::string& type_in(uint32_t version) const {
    return version < changed_in ? old_type : type;
  }
};

struct PersistedClass {
  std::string name;
  std::string base;
  int code = -1;  // layer type code, or -1
  std::vector<Attribute> own;

  /// The name without its outer class.
  std::string short_name() const { return name.substr(name.rfind(':') + 1); }
};

/// The classes of tests/data/attributes.txt.
class AttributeTable {
 public:
  static const AttributeTable& get() {
    static const AttributeTable table(test::test_data_path("attributes.txt"));
    return table;
  }

  const PersistedClass& of(const std::string& name) const { return classes_.at(name); }
  const std::vector<std::string>& names() const { return names_; }

  /// All attributes, those of the base first.
  std::vector<Attribute> attributes_of(const std::string& name) const {
    const PersistedClass& described = of(name);
    std::vector<Attribute> all;
    if (!described.base.empty()) all = attributes_of(described.base);
    all.insert(all.end(), described.own.begin(), described.own.end());
    return all;
  }

  std::vector<std::string> names_with_prefix(const std::string& prefix) const {
    std::vector<std::string> found;
    for (const std::string& name : names_) {
      if (name.compare(0, prefix.size(), prefix) == 0) found.push_back(name);
    }
    return found;
  }

  std::vector<std::string> layer_classes() const {
    std::vector<std::string> found;
    for (const std::string& name : names_) {
      if (of(name).code >= 0) found.push_back(name);
    }
    return found;
  }

 private:
  explicit AttributeTable(const std::string& path) {
    std::ifstream file(path);
    if (!file) throw std::runtime_error("can't open " + path);
    for (std::string line; std::getline(file, line);) read_line(line);
  }

  void read_line(const std::string& line) {
    std::istringstream words(line);
    std::string word;
    if (!(words >> word) || word[0] == '#') return;
    if (word == "class") {
      PersistedClass described;
      words >> described.name;
      while (words >> word) {
        if (word == ":") words >> described.base;
        if (word == "code") words >> described.code;
      }
      names_.push_back(described.name);
      classes_[described.name] = described;
      return;
    }
    Attribute attribute;
    attribute.type = word;
    words >> attribute.key;
    while (words >> word) {
      if (word == "=") {
        words >> std::quoted(attribute.default_text);
        attribute.has_default = true;
      } else if (word == "since") {
        words >> attribute.since;
      } else {
        attribute.old_type = word;
        words >> word >> attribute.changed_in;
      }
    }
    classes_.at(names_.back()).own.push_back(attribute);
  }

  std::vector<std::string> names_;
  std::map<std::string, PersistedClass> classes_;
};

}  // namespace marlo::test
