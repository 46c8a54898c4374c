// The one run-time error type of dossync and the host's error service.
//
// A failing operation anywhere (a back end, a conversion, a missing object) throws RuntimeError,
// which carries the platform's error triple: number, description, source. The numbers are fixed
// (ErrorCode) and tell the host what kind of failure it is; beside the number, the Remedy says
// what the caller should do about it (fix the input, try again later...). The remedy follows
// from the number unless the thrower knows better. Descriptions name the file, record, item or
// server at fault, never a password. The error frame procedures run in, which hands these errors
// to the error service, is core/error_frame.h. A step whose failure its caller expects and
// handles itself answers Expected<T> (base/expected.h) instead of throwing.
#pragma once

#include <cstdint>
#include <functional>
#include <stdexcept>
#include <string>
#include <utility>

namespace dossync {

enum ErrorCode : int32_t {
  kInvalidProcedureCall = 5,
  kOverflow = 6,
  kOutOfMemory = 7,
  kSubscriptOutOfRange = 9,
  kTypeMismatch = 13,
  kFileNotFound = 53,
  kFileAlreadyExists = 58,
  kPermissionDenied = 70,
  kPathNotFound = 76,
  kObjectRequired = 424,
  kCannotCreateObject = 429,
  kObjectVariableNotSet = 91,
  kDiskIO = 3043,
  kTableExists = 3010,
  kNoCurrentRecord = 3021,
  kCannotOpenDatabase = 3049,
  kFieldTooSmall = 3163,
  kNotUpdatable = 3251,
  kItemNotFound = 3265,
  kStatementFailed = 3146,
  kFieldNotUpdatable = 3164,
  kDatabaseLocked = 3260,
  kNotADatabase = 3343,
  kObjectClosed = 3704,
  kProviderNotFound = 3706,  // no driver for the database is installed
  kOutlookOperationFailed = 0x4000,
  kItemNotSaved = 0x4001,
  kDeliveryFailed = 0x4002,
  // A contacts server: the logon was refused (check the user name and password); the server
  // could not be reached or did not answer in time (try again later); it refused a card or a
  // request (the description says why); a card kept changing on the server under our write.
  kLogonFailed = 0x4003,
  kServerUnreachable = 0x4004,
  kServerRejected = 0x4005,
  kEditConflict = 0x4006,
};

// What the caller of a failed operation should do about it.
enum class Remedy : uint8_t {
  kFixInput,    // a value, file, path or setting given is wrong: change it, then run again
  kRetryLater,  // something was busy or out of reach (a lock, a server): the same call may work
  kRefused,     // the other side said no (a logon, a server, a read-only table): ask its owner
  kNotFound,    // what was named (a file, an item, a record) is not there
  kInternal,    // a fault of this program or the machine: report it
};

// The remedy an error number stands for when its thrower gives none.
constexpr Remedy remedyOf(int32_t number) {
  switch (number) {
    case kInvalidProcedureCall:
    case kOverflow:
    case kTypeMismatch:
    case kFileAlreadyExists:
    case kTableExists:
    case kCannotOpenDatabase:
    case kFieldTooSmall:
    case kNotADatabase:
    case kCannotCreateObject:
    case kProviderNotFound:
      return Remedy::kFixInput;
    case kDiskIO:
    case kDatabaseLocked:
    case kDeliveryFailed:
    case kServerUnreachable:
    case kEditConflict:
      return Remedy::kRetryLater;
    case kPermissionDenied:
    case kNotUpdatable:
    case kFieldNotUpdatable:
    case kLogonFailed:
    case kServerRejected:
      return Remedy::kRefused;
    case kSubscriptOutOfRange:
    case kFileNotFound:
    case kPathNotFound:
    case kItemNotFound:
      return Remedy::kNotFound;
    default:
      return Remedy::kInternal;
  }
}

// What a remedy asks of the person running the program, as messages end ("" none to add).
constexpr const char* adviceFor(Remedy remedy) {
  switch (remedy) {
    case Remedy::kRetryLater:
      return "try again later";
    case Remedy::kRefused:
      return "check the account and its rights";
    default:
      return "";
  }
}

class RuntimeError : public std::runtime_error {
 public:
  RuntimeError(int32_t number, std::string description, std::string source = "dossync")
      : RuntimeError(number, remedyOf(number), std::move(description), std::move(source)) {}
  // For a thrower that knows better than the number, e.g. a statement refused because the
  // database was busy (kStatementFailed, kRetryLater).
  RuntimeError(int32_t number, Remedy remedy, std::string description,
               std::string source = "dossync")
      : std::runtime_error(description),
        number_(number),
        remedy_(remedy),
        description_(std::move(description)),
        source_(std::move(source)) {}
  int32_t number() const { return number_; }
  Remedy remedy() const { return remedy_; }
  const std::string& description() const { return description_; }
  const std::string& source() const { return source_; }

 private:
  int32_t number_;
  Remedy remedy_;
  std::string description_;
  std::string source_;
};

// The host's error service (enter procedure, leave procedure, record, report, choose action).
class IErrorService {
 public:
  virtual ~IErrorService() = default;
  virtual void enterProcedure(const std::string& location) = 0;
  virtual void leaveProcedure() = 0;
  virtual void recordError(const RuntimeError& error) = 0;
  virtual void reportError() = 0;
  virtual int32_t chooseAction() = 0;
};

enum ErrorAction : int32_t { kActionResume = 1, kActionLeave = 2, kActionExitProgram = 3 };

}  // namespace dossync
