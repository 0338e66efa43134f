// The module's side of a comparison: real files in memory, two sessions, and the calls of actions.
#pragma once

#include <kvfile/kvhost.h>

#include "model/actions.h"
#include "model/generator.h"
#include "model/operation.h"

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace model {

// Descriptors of the comparison itself begin here, where the module's never come.
inline constexpr int PRIVATE_DESCRIPTORS = 220;

// What came out of a step.
struct Observed {
  bool forC = false;  // an exported function's, not an action's
  bool raised = false;
  KciErrSType error = {};       // where it was raised
  OopType value = OOP_NIL;      // an action's answer
  int64 result = 0;             // an exported function's
  std::string_view bytes;       // what such a function put into its buffer
  bool outsideTouched = false;  // bytes of the buffer that it had no business with
};

class ModuleSide {
 public:
  // Files stand in a new directory in memory, which becomes the current one.
  explicit ModuleSide(int64 sizeLimit);
  ModuleSide(const ModuleSide&) = delete;
  ModuleSide& operator=(const ModuleSide&) = delete;

  // Begins a sequence: files as given, nothing registered, and `lost` descriptors of the last one
  // closed.
  void begin(const std::vector<StartingFile>& files, const std::vector<int>& lost);

  // Descriptors that the process has open, the standard ones left out.
  std::vector<int> takenDescriptors() const;
  std::array<int, Model::SESSIONS> sessionIds() const { return sessions_; }
  const std::string& directory() const { return directory_; }

  // The step's arguments as identifiers; valid until the next step.
  void prepare(const Operation& operation);
  OopType identifier(size_t argument) const { return identifiers_[argument]; }
  OopType fileIdentifier(int64 file) const { return files_[static_cast<size_t>(file)]; }
  OopType objectIdentifier(int64 which) const { return objects_[static_cast<size_t>(which)]; }
  // An empty byte object takes the place of the one that was there.
  void setObject(int64 which, bool isByteArray, bool invariant, std::string_view bytes);

  Observed perform(const Operation& operation);

  // Whether files may not grow past the limit; the module's never may.
  void limitFiles(bool limited);

  // Asked without changing anything.
  int errorCode(OopType file);
  std::string_view errorText(int64 file, int session);
  std::string_view bytesOf(OopType object);
  std::string_view contentOf(const std::string& file);
  int64 descriptorPosition(int descriptor) const;

  void collectGarbage();

 private:
  struct Watched {
    std::string name;
    int descriptor = -1;
    const char* memory = nullptr;
  };

  void makeDirectory();
  void watch(Watched* file);
  void redirect();
  OopType make(const Value& value, bool asIdentifier);
  void performForC(const Operation& operation, Observed* observed);

  int64 sizeLimit_;
  std::string directory_;
  std::vector<Watched> watched_;
  std::array<int, Model::SESSIONS> sessions_{};
  std::array<OopType, Model::FILES> files_{};
  std::array<OopType, Model::OBJECTS> objects_{};
  std::array<OopType, 8> identifiers_{};
  std::vector<OopType> known_;
  std::string buffer_;
  std::string text_;
};

}  // namespace model
