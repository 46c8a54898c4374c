// A realistic synthetic practice for demonstrations, tests and benchmarks: nested categories
// and the host category, companies (some associates of others) with their client record and
// eight detail rows, 0-4 contacts per company with one default, contacts without a company,
// custom field captions, schedule columns and schedule rows. The same seed gives the same data.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace dossync::app {

// The places and names the synthetic data is made of (the benchmarks' cards use them too).
struct DemoCity {
  const char* city;
  const char* province;
  const char* area;
  char postal;
};
extern const std::array<DemoCity, 10> kDemoCities;
extern const std::array<const char*, 10> kDemoStreets;
extern const std::array<const char*, 24> kDemoNameWords;  // the first words of company names
extern const std::array<const char*, 16> kDemoTrades;
extern const std::array<const char*, 6> kDemoSuffixes;

struct DemoOptions {
  int32_t companies = 50;
  uint64_t seed = 1;
  int32_t minContacts = 0;  // contacts per company, inclusive range
  int32_t maxContacts = 4;
  bool append = false;  // into a practice that already has companies (refused otherwise)
};

struct DemoSummary {
  int32_t categories = 0, companies = 0, contacts = 0, clients = 0, scheduleRows = 0;
};

// Fills an existing host database (see createHostDatabase) in one transaction. Throws
// RuntimeError when it already has companies and options.append is not set.
DemoSummary fillDemoPractice(const std::string& hostDbPath, const DemoOptions& options);

}  // namespace dossync::app
