// A realistic synthetic practice for demonstrations, tests and benchmarks: nested categories
// and the host category, companies (some associates of others) with their client record and
// eight detail rows, 0-4 contacts per company with one default, contacts without a company,
// custom field captions, schedule columns and schedule rows. The same seed gives the same data.
#pragma once

#include <cstdint>
#include <string>

namespace dossync::app {

struct DemoOptions {
  int32_t companies = 50;
  uint64_t seed = 1;
  int32_t minContacts = 0;  // contacts per company, inclusive range
  int32_t maxContacts = 4;
};

struct DemoSummary {
  int32_t categories = 0, companies = 0, contacts = 0, clients = 0, scheduleRows = 0;
};

// Fills an existing, empty host database (see createHostDatabase) in one transaction.
DemoSummary fillDemoPractice(const std::string& hostDbPath, const DemoOptions& options);

}  // namespace dossync::app
