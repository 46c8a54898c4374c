// Named jobs: synchronisations written down once in $XDG_CONFIG_HOME/dossync/config.toml
// (~/.config/dossync/config.toml), one table each, and run by name (`dossync run NAME`) from a
// terminal, cron or a systemd timer:
//
//   [jobs.nightly]
//   host-db = "practice.db"          # relative to the config file's folder
//   sync-db = "sync.db"
//   outlook = "carddav:https://dav.example.com/addressbooks/office/"
//   profile = "office"
//   password-command = "secret-tool lookup service dossync"
//   two-way = true
//
// A job's keys are the long options of `dossync sync` without their dashes: a text or a number
// for an option, true or false for a flag. host-db, sync-db, password-file and a vdir: store
// are paths, taken relative to the config file's folder (a PostgreSQL URI is left as it is).
// A password is never written there: `password` is refused (password-file or
// password-command say where to find it). Errors are RuntimeError kInvalidProcedureCall whose
// description starts with "FILE:LINE: " and names the key.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace dossync::app {

// The config file: $XDG_CONFIG_HOME/dossync/config.toml, or ~/.config/dossync/config.toml.
std::filesystem::path jobsConfigFile();

// What a job's keys may be: the long options of sync (without dashes), true for a flag.
using JobKeys = std::map<std::string, bool>;

struct JobSetting {
  std::string key;
  std::string value;  // a flag's is "true" or "false"
  bool flag = false;
};

struct Job {
  std::string name;
  std::vector<JobSetting> settings;  // paths made absolute
  int64_t line = 0;                  // of its table in the file
};

// The keys a job may have: the long options of `dossync sync`.
JobKeys syncKeys();

// The jobs of the file, in its order; none when the file does not exist.
std::vector<Job> loadJobs(const std::filesystem::path& file, const JobKeys& keys);

// The arguments of `dossync sync` (after "sync") that run the job with `given`, the options
// of the command line, which take the place of the job's: a password option given replaces
// every password option of the job, --direction the job's two-way and the other way round.
std::vector<std::string> jobArguments(const Job& job, const std::vector<std::string>& given);

// Adds the job to the end of the file (made, with its folder, when missing), leaving what the
// file holds as it is. Throws when the file cannot be read as a config file, when it has a job
// of that name already, and for a name that is not a plain TOML key. Paths are written as
// given: the caller makes them absolute.
void addJob(const std::filesystem::path& file, const std::string& name,
            const std::vector<JobSetting>& settings, const JobKeys& keys);

// Whether the setting names a path (resolved against the config file's folder when relative).
bool isPathSetting(const std::string& key, const std::string& value);
// What a job's name written by `jobs add` is made of: letters, digits, - and _.
bool isJobNameChar(char c);

}  // namespace dossync::app
