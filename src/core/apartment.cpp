#include "core/apartment.h"

namespace dossync {
namespace {
thread_local std::unique_ptr<Apartment> tApartment;
}

Apartment& apartment() {
  if (!tApartment) tApartment = std::make_unique<Apartment>();
  return *tApartment;
}

void resetApartment() {
  tApartment.reset();
}

void Apartment::finishWhenIdle(const std::shared_ptr<IdleTask>& task) {
  for (const auto& known : idleTasks) {
    if (known.lock() == task) return;
  }
  idleTasks.push_back(task);
}

std::vector<RuntimeError> Apartment::idleDatabases() {
  std::vector<RuntimeError> failed;
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) {
    if (!db) continue;
    try {
      db->idle();
    } catch (const RuntimeError& e) {
      failed.push_back(e);
    } catch (...) {
    }
  }
  return failed;
}

void Apartment::commitPoint() {
  bool due = false;
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) due = due || (db && db->commitDue());
  if (!due) return;
  for (const auto& weak : idleTasks) {
    if (auto task = weak.lock()) task->finish();
  }
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) {
    if (db) db->commitPoint();
  }
}

FileUtil& Apartment::fileUtil() {
  if (!fileUtil_) fileUtil_ = std::make_unique<FileUtil>();
  return *fileUtil_;
}

GeneralUtil& Apartment::generalUtil() {
  if (!generalUtil_) generalUtil_ = std::make_unique<GeneralUtil>();
  return *generalUtil_;
}

}  // namespace dossync
