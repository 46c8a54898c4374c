#include "core/apartment.h"

namespace dossync {
namespace {
thread_local std::unique_ptr<Apartment> tApartment;
}

Apartment& apartment() {
  if (!tApartment) tApartment = std::make_unique<Apartment>();
  return *tApartment;
}

void resetApartment() { tApartment.reset(); }

FileUtil& Apartment::fileUtil() {
  if (!fileUtil_) fileUtil_ = std::make_unique<FileUtil>();
  return *fileUtil_;
}

GeneralUtil& Apartment::generalUtil() {
  if (!generalUtil_) generalUtil_ = std::make_unique<GeneralUtil>();
  return *generalUtil_;
}

}  // namespace dossync
