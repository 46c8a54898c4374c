#include "core/apartment.h"

#include <algorithm>
#include <optional>

#include "core/synchronization.h"

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

std::vector<RuntimeError> Apartment::idleDatabases(bool forgetTasks) {
  if (inRecord) return {};
  return commitAll(forgetTasks);
}

std::vector<RuntimeError> Apartment::commitPoint() {
  bool due = false;
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) due = due || (db && db->commitDue());
  if (!due) return {};
  const auto start = std::chrono::steady_clock::now();
  const auto wait =
      std::min<std::chrono::steady_clock::duration>(kCommitPace * lastCommitCost_, kCommitSpacing);
  if (start - lastCommitEnd_ < wait) return {};
  std::vector<RuntimeError> failed = commitAll(false);
  lastCommitEnd_ = std::chrono::steady_clock::now();
  lastCommitCost_ = lastCommitEnd_ - start;
  return failed;
}

std::vector<RuntimeError> Apartment::commitAll(bool forgetTasks) {
  std::vector<RuntimeError> failed;
  auto attempt = [&](auto&& body) {
    try {
      body();
      return true;
    } catch (const RuntimeError& e) {
      failed.push_back(e);
    } catch (const std::exception& e) {
      failed.emplace_back(kInvalidProcedureCall, e.what());
    } catch (...) {
      failed.emplace_back(kInvalidProcedureCall, "Unknown failure");
    }
    return false;
  };
  std::vector<std::weak_ptr<IdleTask>> tasks = idleTasks;
  if (forgetTasks) idleTasks.clear();
  bool lost = false;
  for (const auto& weak : tasks) {
    if (auto task = weak.lock()) {
      lost = !attempt([&] { task->finish(); }) || lost;
      lost = task->takeFailure() || lost;
    }
  }
  if (hostDb) lost = !attempt([&] { hostDb->idle(); }) || lost;
  if (syncDb) {
    if (lost) {
      attempt([&] { syncDb->dropGroup(); });
    } else {
      lost = !attempt([&] { syncDb->idle(); });
    }
  }
  if (currentComponent) currentComponent->groupEnded(!lost);
  return failed;
}

void Apartment::beginRecord(bool writesHost) {
  inRecord = true;
  std::optional<RuntimeError> failed;
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) {
    try {
      if (!db) continue;
      if (db == hostDb.get() && writesHost && syncDb) db->holdWrites();  // the host's lock first
      db->beginRecord();
    } catch (const RuntimeError& e) {
      if (!failed) failed = e;
    }
  }
  if (failed) throw *failed;
}

void Apartment::endRecord(bool keep) {
  inRecord = false;
  for (hostdb::IDataAccess* db : {hostDb.get(), syncDb.get()}) {
    if (db) db->endRecord(keep);
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
