// The password of a store on a server (carddav:URL), found the same way by every command that
// takes one. The first of these that gives one is used:
//   --password PW            seen by every user of the machine (ps) until it is parsed; kept
//                            for scripts of old
//   --password-file FILE     the file's first line
//   --password-command CMD   the first line CMD prints (run by /bin/sh, as vdirsyncer's
//                            "fetch" does: pass, secret-tool, gpg...)
//   USER:PASSWORD@ in the URL   taken out of the URL, which is used without them
//   DOSSYNC_PASSWORD         the environment variable
//   ~/.netrc                 libcurl's own, for the server's host (and user, when given)
//   a prompt                 when standard input is a terminal and the server refused the
//                            logon without a password (nothing is echoed)
// At most one of the three options. A password is never printed, not even in an error.
#pragma once

#include <iosfwd>
#include <string>

namespace CLI {
class App;
}

namespace dossync::app {

struct PasswordOptions {
  std::string password, file, command;
};

// Adds --password, --password-file and --password-command (mutually exclusive) to the command.
void addPasswordOptions(CLI::App* cmd, PasswordOptions& o);

struct Credentials {
  std::string outlook;  // the --outlook value, without a user or password in its URL
  std::string profile;  // for carddav: the user name (the URL's when --profile gives none)
  std::string password;
};

// The store, user and password a command works with. Throws RuntimeError naming the password
// file or command (never their text): kFileNotFound for a file that cannot be read,
// kInvalidProcedureCall for a command that fails or prints nothing.
Credentials resolveCredentials(const std::string& outlook, const std::string& profile,
                               const PasswordOptions& given);

// Asks for a password on standard error and reads it from standard input without echo;
// answers false when standard input is not a terminal, or prompts are not allowed.
bool promptPassword(const std::string& question, std::string* password);
// Whether promptPassword may ask (true until set otherwise): a named job never does.
void allowPasswordPrompt(bool allowed);
bool passwordPromptAllowed();

// Overwrites the value of every --password option in argv (after parsing), so that ps shows
// it no longer.
void hidePasswordArguments(int argc, char** argv);

}  // namespace dossync::app
