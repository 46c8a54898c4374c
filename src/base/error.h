// The one run-time error type of dossync and the host's error service.
//
// A failing operation anywhere (a back end, a conversion, a missing object) throws RuntimeError,
// which carries the platform's error triple: number, description, source. The numbers are fixed
// (ErrorCode) and tell the caller what kind of failure it is; descriptions name the file, record
// or item at fault. The error frame procedures run in, which hands these errors to the error
// service, is core/error_frame.h.
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

class RuntimeError : public std::runtime_error {
 public:
  RuntimeError(int32_t number, std::string description, std::string source = "dossync")
      : std::runtime_error(description),
        number_(number),
        description_(std::move(description)),
        source_(std::move(source)) {}
  int32_t number() const { return number_; }
  const std::string& description() const { return description_; }
  const std::string& source() const { return source_; }

 private:
  int32_t number_;
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
