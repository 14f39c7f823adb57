#pragma once

#include <memory>
#include <sstream>
#include <string>

#include "qrt_core/runtime/model/visitor.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Base of every persisted object.
///
/// A derived class sets its members' defaults and `serializable_type` in its constructor and lists
/// its attributes once in `VisitAttr`; reading and writing, as JSON and as binary, follow.
///
/// Read into a new object. One that has been read into, or filled, keeps what the file doesn't say:
/// JSON appends to its vectors of numbers, tables keep entries that aren't listed, and a parameter
/// object that is there is read into, whatever class the file names.
///
/// This holds for every class derived from it: any number of threads may read the members of one
/// object, and make networks of it, while none changes it. A walk, and with it reading and writing
/// a file, changes it.
///
/// @code
/// struct Point : Serializable {
///   Point() { serializable_type = "Point"; }
///   void VisitAttr(std::shared_ptr<Visitor> visitor) override {
///     Serializable::VisitAttr(visitor);
///     visitor->Visit(&x, "x");
///     visitor->Visit(&y, "y");
///   }
///   float x = 0, y = 0;
/// };
/// Point point;
/// point.ToFile("point.json", "json");
/// @endcode
class QRT_API Serializable {
 public:
  /// @name Making, copying and moving
  /// @{

  /// As the members are made, copied and moved.
  Serializable();
  Serializable(const Serializable&);
  Serializable(Serializable&&) noexcept;
  Serializable& operator=(const Serializable&);
  Serializable& operator=(Serializable&&) noexcept;
  virtual ~Serializable();
  /// @}

  /// Walks the attributes in their fixed order. The base sets `serializable_type` to the class's
  /// short name and visits it.
  virtual void VisitAttr(std::shared_ptr<Visitor> visitor);

  /// The class name without namespaces. Leaves the whole name in `serializable_type`.
  virtual std::string GetClassTypeName();

  /// The class name with its namespaces.
  virtual std::string GetClassTypeNameWithNamespace();

  /// Reads the object from a file.
  /// @param path the file
  /// @param type "json" or "bin"
  /// @return false, after an error line in the log, for another type or a binary file that can't be
  ///   opened
  /// @throws std::runtime_error for a JSON file that can't be opened, for a file that can't be read
  ///   or doesn't hold this object; what was read up to the fault stays in the object. A list of
  ///   ids that makes a JSON document be read more than about twice per byte counts as such.
  ///
  /// A binary file that names another class, or goes on behind the object, is read with a warning
  /// in the log.
  virtual bool FromFile(const char* path, const char* type);

  /// Reads the object from a file whose type follows from its suffix: .json is JSON; .qrmod,
  /// .qrcfg, .qrmods and .qrcfgs are binary.
  /// @throws std::runtime_error for another suffix; std::out_of_range for a path shorter than the
  ///   suffix it is compared with
  virtual bool FromFile(const char* path);

  /// Reads the object from JSON text. @return true
  /// @throws std::runtime_error for a text that isn't an object of this class
  virtual bool FromJsonString(const char* text);

  /// Writes the object to a file.
  /// @param path the file; an existing one is replaced
  /// @param type "json" or "bin"
  /// @return false, after an error line in the log, for another type, a binary file that can't be
  ///   created, a file that can't be written whole, a value that JSON can't hold, or an object that
  ///   couldn't be read again: a parameter whose class its type doesn't name, a layer whose class
  ///   contradicts its type code, an id that JSON would mistake for an attribute. A refused object
  ///   leaves the file as it was. For a JSON file that can't be created it is true, after an error
  ///   line in the log.
  /// @throws std::runtime_error for a part of the object that is a null pointer, and as `VisitAttr`
  virtual bool ToFile(const char* path, const char* type);

  /// The class's short name, or whatever name the object was read with.
  std::string serializable_type;
};

/// The text of a file up to its first NUL byte.
/// @throws std::runtime_error if the file can't be opened or read whole
QRT_API std::stringstream ReadJsonFile2StrStream(const char* path);

}  // namespace marlo::runtime
