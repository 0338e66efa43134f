// The model of the actions: what each answers and does, by its rules alone. It shares nothing with
// the module, not even a header.
#pragma once

#include "model/host.h"
#include "model/operation.h"
#include "model/record.h"

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace model {

// A byte object of the sequence that steps read into and write from.
struct ByteObject {
  bool isByteArray = false;
  bool invariant = false;
  std::string bytes;
};

class Model {
 public:
  static constexpr int SESSIONS = 2;
  static constexpr int FILES = 5;
  static constexpr int OBJECTS = 4;

  // The identifier of argument `index` of the step that is performed.
  using Identify = std::function<uint64_t(size_t index)>;

  Model(int64 bufferSize, int64 sizeLimit, std::array<int, SESSIONS> sessionIds, Identify identify);

  Host& host() { return host_; }
  ByteObject& object(int64 which) { return objects_[static_cast<size_t>(which)]; }

  // False for a step that the model has no word for, or that would take too much memory.
  bool admits(const Operation& operation);

  // The step with integers that count from a size made whole.
  Operation resolved(const Operation& operation) const;

  Answer perform(const Operation& operation);

  // What can be asked without changing anything.
  int currentSession() const { return session_; }
  bool hasFiles(int session) { return session != 0 && filesOf(session) != nullptr; }
  Record* recordOf(int session, int64 file);
  int classErrorCode() const { return classErrorCode_; }
  // The file whose bytes a step may change, as far as a record leads there; null for none.
  HostFile* fileOf(int session, int64 file);

 private:
  using Files = std::map<int64, std::unique_ptr<Record>>;

  struct InterfaceError {
    int number = 0;
    std::string message;
    size_t argument = 0;
  };

  // Looking up.
  struct Found {
    Record* record = nullptr;
    std::optional<Answer> raised;
  };
  Files* filesOf(int session);
  Found find(const Value& file, int session, bool mayBeMissing);
  Found findOpen(const Value& file, int session = 0);
  std::optional<Answer> missingSession(int session);

  // The interface's objects.
  int64 sizeOf(const Value& value) const;
  bool store(size_t argument, int64 offset, std::string_view bytes);
  bool resize(size_t argument, int64 size);
  std::string fetch(size_t argument, int64 offset, int64 count);
  void failInterface(int number, const char* text, size_t argument);
  std::optional<InterfaceError> takeInterfaceError();
  void post(Record* record, const InterfaceError& error);

  // Actions.
  Answer open();
  Answer createStandardFile();
  Answer close();
  Answer closeAll();
  Answer finalizeAll();
  Answer clientFinalize();
  Answer read();
  Answer getCharacter();
  Answer getLine();
  Answer atEnd();
  Answer write();
  Answer putCharacter();
  Answer printBytes();
  Answer seek();
  Answer position();
  Answer flush(bool sync);
  Answer errorString();
  Answer errorCode();
  Answer isOpen();
  Answer isCompressed();
  Answer fileDescriptor();
  Answer loadByteStrings();
  Answer classError();
  Answer readForC();
  Answer writeForC();
  Answer errorStringForC();
  Answer dispatch();

  void startup(int session);
  void shutdown(int session);
  Answer answerOpened(const std::string& path, const std::string& mode, bool gzip);
  Answer registerFile(int descriptor, std::unique_ptr<GzipHandle> handle, bool isStd,
                      const std::string& mode);
  bool finalizeOne(int64 id, std::optional<Answer>* raised);
  void printEach(Record* record, const std::string& bytes);
  std::string decimalText(Record* record, int64 amount);

  // What `admits` asks.
  bool admitsOpening(const Operation& operation);
  bool admitsWriting(HostFile* file, Record* record, int64 amount) const;
  int64 bytesToWrite(const Operation& operation) const;
  bool wouldRegister(const Value& file);
  int64 gzipRoomTaken(const HostFile& file, const Record* record) const;

  int64 bufferSize_;
  int64 sizeLimit_;
  Host host_;
  Identify identify_;
  std::array<int, SESSIONS> sessionIds_;
  std::array<std::optional<Files>, SESSIONS> sessions_;
  int session_ = 0;
  std::array<ByteObject, OBJECTS> objects_;
  int classErrorCode_ = 0;
  std::string classErrorText_;
  std::optional<InterfaceError> pending_;
  const Operation* now_ = nullptr;
};

}  // namespace model
