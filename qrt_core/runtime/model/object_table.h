#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {

/// Visits an object that is held by a pointer, under its key.
/// @throws std::runtime_error for a null pointer, as an object that was moved from has it
template <typename Object>
void VisitHeld(Visitor& visitor, const std::shared_ptr<Object>& object, const char* key) {
  utility::Assert(object != nullptr, "\"%s\" is a null pointer", key);
  visitor.Visit(object.get(), key);
}

/// Visits the objects of a table in the order of an id list, each under its id, and makes a default
/// object for an id that the table lacks.
template <typename Object>
void VisitTable(Visitor& visitor, const std::vector<std::string>& ids,
                std::map<std::string, std::shared_ptr<Object>>& table) {
  for (const std::string& id : ids) {
    std::shared_ptr<Object>& object = table[id];
    if (object == nullptr) object = std::make_shared<Object>();
    visitor.Visit(object.get(), id.c_str());
  }
}

}  // namespace marlo::runtime
