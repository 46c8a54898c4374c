#include "app/credentials.h"

#include <curl/curl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <memory>

#include "base/error.h"

namespace dossync::app {
namespace {

std::string firstLine(const std::string& text) {
  std::string line = text.substr(0, text.find('\n'));
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return line;
}

std::string fromFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in)
    throw RuntimeError(kFileNotFound,
                       "Cannot read the password file " + path + ": " + std::strerror(errno));
  std::string line;
  std::getline(in, line);
  return firstLine(line);
}

std::string fromCommand(const std::string& command) {
  std::fflush(nullptr);
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe)
    throw RuntimeError(kInvalidProcedureCall, "Cannot run the password command '" + command +
                                                  "': " + std::strerror(errno));
  std::string output;
  char buffer[4096];
  while (size_t n = std::fread(buffer, 1, sizeof buffer, pipe)) output.append(buffer, n);
  int status = ::pclose(pipe);
  std::string line = firstLine(output);
  std::fill(output.begin(), output.end(), '\0');
  if (status == -1 || !WIFEXITED(status) || WEXITSTATUS(status) != 0)
    throw RuntimeError(kInvalidProcedureCall,
                       "The password command '" + command + "' failed (" +
                           (WIFEXITED(status) ? "exit status " + std::to_string(WEXITSTATUS(status))
                                              : std::string("killed")) +
                           ")");
  if (line.empty())
    throw RuntimeError(kInvalidProcedureCall,
                       "The password command '" + command + "' printed no password");
  return line;
}

// Takes USER:PASSWORD@ out of an http(s) URL; answers whether the URL held any.
bool takeUserInfo(std::string* url, std::string* user, std::string* password) {
  size_t scheme = url->find("://");
  if (scheme == std::string::npos) {
    size_t at = url->find('@');
    if (at != std::string::npos && at < url->find('/'))  // a login, but no http(s)://
      throw RuntimeError(
          kInvalidProcedureCall,
          "Unknown Outlook store 'carddav:..." + url->substr(at) +
              "': a CardDAV address book is carddav:http://... or carddav:https://...");
    return false;
  }
  size_t end = url->find_first_of("/?#", scheme + 3);
  size_t at = url->rfind('@', end == std::string::npos ? url->size() : end);
  if (at == std::string::npos || at < scheme + 3) return false;
  std::unique_ptr<CURLU, decltype(&curl_url_cleanup)> u(curl_url(), curl_url_cleanup);
  if (!u ||
      curl_url_set(u.get(), CURLUPART_URL, url->c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK)
    throw RuntimeError(kInvalidProcedureCall, "The Outlook store's address is not a valid URL (" +
                                                  url->substr(0, scheme + 3) + "..." +
                                                  url->substr(at) + ")");
  auto take = [&](CURLUPart part) {
    char* v = nullptr;
    std::string out;
    if (curl_url_get(u.get(), part, &v, CURLU_URLDECODE) == CURLUE_OK && v) out = v;
    curl_free(v);
    curl_url_set(u.get(), part, nullptr, 0);
    return out;
  };
  *user = take(CURLUPART_USER);
  *password = take(CURLUPART_PASSWORD);
  char* rest = nullptr;
  if (curl_url_get(u.get(), CURLUPART_URL, &rest, 0) != CURLUE_OK || !rest)
    throw RuntimeError(kInvalidProcedureCall, "The Outlook store's address is not a valid URL");
  *url = rest;
  curl_free(rest);
  return true;
}

}  // namespace

void addPasswordOptions(CLI::App* cmd, PasswordOptions& o) {
  auto* plain = cmd->add_option("--password", o.password,
                                "The profile's password (carddav: the account's); other users "
                                "see it in ps: prefer the two below");
  auto* file =
      cmd->add_option("--password-file", o.file, "A file whose first line is the password");
  auto* command = cmd->add_option("--password-command", o.command,
                                  "A shell command whose first line of output is the password");
  plain->excludes(file)->excludes(command);
  file->excludes(command);
}

Credentials resolveCredentials(const std::string& outlook, const std::string& profile,
                               const PasswordOptions& given) {
  Credentials c{outlook, profile, ""};
  std::string inUrl;
  const std::string prefix = "carddav:";
  if (outlook.rfind(prefix, 0) == 0) {
    std::string url = outlook.substr(prefix.size()), user;
    if (takeUserInfo(&url, &user, &inUrl)) {
      c.outlook = prefix + url;
      if (c.profile.empty()) c.profile = user;
    }
  }
  if (!given.password.empty()) {
    c.password = given.password;
  } else if (!given.file.empty()) {
    c.password = fromFile(given.file);
  } else if (!given.command.empty()) {
    c.password = fromCommand(given.command);
  } else if (!inUrl.empty()) {
    c.password = inUrl;
  } else if (const char* env = std::getenv("DOSSYNC_PASSWORD"); env && *env) {
    c.password = env;
  }
  // Not handed down to the commands this process starts (a password command, xdg-open).
  ::unsetenv("DOSSYNC_PASSWORD");
  return c;
}

namespace {
bool gPromptAllowed = true;
}  // namespace

void allowPasswordPrompt(bool allowed) {
  gPromptAllowed = allowed;
}
bool passwordPromptAllowed() {
  return gPromptAllowed;
}

bool promptPassword(const std::string& question, std::string* password) {
  if (!gPromptAllowed || !::isatty(STDIN_FILENO)) return false;
  // Echo is off before the question is asked: nothing typed after it is ever shown.
  termios before{};
  bool quiet = ::tcgetattr(STDIN_FILENO, &before) == 0;
  if (quiet) {
    termios silent = before;
    silent.c_lflag &= ~static_cast<tcflag_t>(ECHO);
    silent.c_lflag |= ECHONL;
    ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &silent);
  }
  std::cerr << question << std::flush;
  std::string line;
  bool read = static_cast<bool>(std::getline(std::cin, line));
  if (quiet) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &before);
  if (!read) return false;
  *password = firstLine(line);
  return true;
}

void hidePasswordArguments(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    char* value = nullptr;
    if (std::strcmp(argv[i], "--password") == 0 && i + 1 < argc) {
      value = argv[++i];
    } else if (std::strncmp(argv[i], "--password=", 11) == 0) {
      value = argv[i] + 11;
    }
    if (value) std::memset(value, 'x', std::strlen(value));
  }
}

}  // namespace dossync::app
