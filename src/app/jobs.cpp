#include "app/jobs.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "app/databases.h"
#include "base/error.h"

namespace dossync::app {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const fs::path& file, int64_t line, const std::string& what) {
  throw RuntimeError(kInvalidProcedureCall,
                     file.string() + ":" + std::to_string(line > 0 ? line : 1) + ": " + what);
}

// The options that stand for one another: one given on the command line replaces the job's
// others.
const std::vector<std::set<std::string>> kExclusive = {
    {"password", "password-file", "password-command"}, {"direction", "two-way"}};

bool isBareKey(const std::string& name) {
  return !name.empty() && std::all_of(name.begin(), name.end(), isJobNameChar);
}

std::string homePath(const std::string& path) {
  if (path.rfind("~/", 0) != 0) return path;
  const char* home = std::getenv("HOME");
  return std::string(home && *home ? home : ".") + path.substr(1);
}

// A path of the config file, relative to its folder.
std::string resolved(const fs::path& base, const std::string& key, const std::string& value) {
  if (!isPathSetting(key, value)) return value;
  bool store = key == "outlook";
  std::string path = homePath(store ? value.substr(5) : value);
  if (!path.empty() && fs::path(path).is_relative())
    path = (base / path).lexically_normal().string();
  return store ? "vdir:" + path : path;
}

toml::table parse(const fs::path& file) {
  try {
    return toml::parse_file(file.string());
  } catch (const toml::parse_error& e) {
    fail(file, e.source().begin.line, std::string(e.description()));
  }
}

std::string keyPath(const std::string& job, const std::string& key) {
  return "jobs." + job + (key.empty() ? "" : "." + key);
}

}  // namespace

bool isJobNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_';
}

fs::path jobsConfigFile() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg && *xdg) return fs::path(xdg) / "dossync" / "config.toml";
  const char* home = std::getenv("HOME");
  return fs::path(home && *home ? home : ".") / ".config" / "dossync" / "config.toml";
}

bool isPathSetting(const std::string& key, const std::string& value) {
  if (key == "outlook") return value.rfind("vdir:", 0) == 0;
  if (key == "host-db" || key == "sync-db") return !databases::isServer(value);
  return key == "password-file";
}

std::vector<Job> loadJobs(const fs::path& given, const JobKeys& keys) {
  std::error_code ec;
  if (!fs::exists(given, ec)) return {};
  const fs::path file = fs::absolute(given);
  toml::table config = parse(file);
  for (auto&& [key, node] : config) {
    if (key.str() != "jobs")
      fail(file, key.source().begin.line,
           "unknown key '" + std::string(key.str()) + "' (the file holds [jobs.NAME] tables)");
  }
  std::vector<Job> jobs;
  const toml::node* all = config.get("jobs");
  if (!all) return jobs;
  if (!all->is_table()) fail(file, all->source().begin.line, "jobs: a table of jobs ([jobs.NAME])");
  for (auto&& [name, node] : *all->as_table()) {
    Job job{std::string(name.str()), {}, name.source().begin.line};
    const toml::table* table = node.as_table();
    if (!table)
      fail(
          file, name.source().begin.line,
          keyPath(job.name, "") + ": a job is a table of sync's options ([jobs." + job.name + "])");
    for (auto&& [k, value] : *table) {
      std::string key(k.str());
      auto line = k.source().begin.line;
      std::string where = keyPath(job.name, key) + ": ";
      if (key == "password")
        fail(file, line,
             where +
                 "a password is not kept in the config file: give password-file (a file "
                 "whose first line is the password) or password-command (a command that "
                 "prints it)");
      auto known = keys.find(key);
      if (known == keys.end())
        fail(file, line,
             where +
                 "no such option of sync (a job's keys are sync's long options "
                 "without their dashes: host-db, sync-db, outlook...)");
      JobSetting s{key, "", known->second};
      if (s.flag) {
        if (!value.is_boolean()) fail(file, line, where + "a flag: true or false");
        s.value = value.as_boolean()->get() ? "true" : "false";
      } else if (value.is_string()) {
        s.value = resolved(file.parent_path(), key, value.as_string()->get());
      } else if (value.is_integer()) {
        s.value = std::to_string(value.as_integer()->get());
      } else if (value.is_floating_point()) {
        std::ostringstream text;
        text << value.as_floating_point()->get();
        s.value = text.str();
      } else {
        fail(file, line, where + "a text or a number");
      }
      job.settings.push_back(std::move(s));
    }
    jobs.push_back(std::move(job));
  }
  // The file's order (a table keeps its keys sorted).
  std::stable_sort(jobs.begin(), jobs.end(),
                   [](const Job& a, const Job& b) { return a.line < b.line; });
  return jobs;
}

std::vector<std::string> jobArguments(const Job& job, const std::vector<std::string>& given) {
  std::set<std::string> replaced;
  for (const auto& arg : given) {
    if (arg.rfind("--", 0) != 0 || arg.size() == 2) continue;
    std::string key = arg.substr(2, arg.find('=') - 2);
    replaced.insert(key);
    for (const auto& group : kExclusive)
      if (group.count(key)) replaced.insert(group.begin(), group.end());
  }
  std::vector<std::string> args;
  for (const auto& s : job.settings) {
    if (replaced.count(s.key)) continue;
    if (s.flag) {
      if (s.value == "true") args.push_back("--" + s.key);
      continue;
    }
    args.push_back("--" + s.key);
    args.push_back(s.value);
  }
  args.insert(args.end(), given.begin(), given.end());
  return args;
}

void addJob(const fs::path& file, const std::string& name, const std::vector<JobSetting>& settings,
            const JobKeys& keys) {
  if (!isBareKey(name))
    throw RuntimeError(kInvalidProcedureCall,
                       "A job's name is made of letters, digits, - and _, "
                       "not '" +
                           name + "'");
  std::string text;
  std::error_code ec;
  if (fs::exists(file, ec)) {
    for (const auto& job : loadJobs(file, keys)) {
      if (job.name == name)
        throw RuntimeError(kInvalidProcedureCall, "There is a job " + name + " in " +
                                                      file.string() + " already: edit it there");
    }
    std::ifstream in(file, std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(in), {});
  } else {
    fs::create_directories(file.parent_path());
  }
  std::ostringstream job;
  if (!text.empty()) job << (text.back() == '\n' ? "\n" : "\n\n");
  job << "[jobs." << name << "]\n";
  for (const auto& s : settings) {
    if (s.key == "password")
      throw RuntimeError(kInvalidProcedureCall,
                         "A password is not kept in the config file: give --password-file or "
                         "--password-command");
    toml::table line;
    if (s.flag) {
      line.insert(s.key, s.value == "true");
    } else if (!s.value.empty() && s.value.size() < 19 &&
               s.value.find_first_not_of("0123456789") == std::string::npos &&
               (s.value == "0" || s.value[0] != '0')) {
      line.insert(s.key, std::stoll(s.value));
    } else {
      line.insert(s.key, s.value);
    }
    job << line << "\n";
  }
  std::ofstream out(file, std::ios::binary | std::ios::app);
  out << job.str();
  out.flush();
  if (!out) throw RuntimeError(kDiskIO, "Cannot write " + file.string());
}

}  // namespace dossync::app
