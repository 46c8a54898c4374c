// Cards written by the vCard folder store, read by python3-vobject, as khard and vdirsyncer read
// them (khard itself: tests/app/khard_vdir_test.sh). Skipped when it is not installed.
#include <gtest/gtest.h>

#include <sys/wait.h>

#include <cstdlib>
#include <fstream>

#include "backends/vdir/vdir_store.h"
#include "test_support.h"

namespace dossync::vdir {
namespace {

// The exit status of a shell command, its output and errors in `output`; stopped if it hangs.
int run(const std::string& command, const std::string& output) {
  int status = std::system(("timeout 60 " + command + " </dev/null >" + output + " 2>&1").c_str());
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(VdirInteropTest, PythonVobjectReadsWhatWeWrite) {
  testing::TempDir root;
  const std::string out = root.path() + "/out.txt", script = root.path() + "/read.py";
  if (run("/usr/bin/python3 -c 'import vobject'", out) != 0)
    GTEST_SKIP() << "python3-vobject is not installed";
  auto app = makeVdirApplication(root.path());
  auto c = testing::saveContact(*app, "", [](outlook::ContactItem& c) {
    c.setFirstName("Jürgen");
    c.setLastName("Müller, Jr.");
    c.setFullName("Jürgen Müller");
    c.setCompanyName("Smith; Jones & Partners");
    c.setDepartment("Tax");
    c.setBusinessTelephoneNumber("+44 20 7946 0000");
    c.setMobileTelephoneNumber("+44 7700 900123");
    c.setEmail1Address("juergen@example.com");
    c.setEmail2Address("jkm@example.org");
    c.setBody("First line\r\nsecond, with comma");
    c.setCategories("Business, VIP");
  });
  // A company without a person name, as a host company is sent.
  auto company = testing::saveContact(*app, "Åkesson Bygg AB", [](outlook::ContactItem& c) {
    c.setCompanyName("Åkesson Bygg AB");
    c.setEmail1Address("info@akesson.example");
  });
  std::ofstream(script) << R"(
import sys, vobject
c, company = (vobject.readOne(open(f, encoding="utf-8").read()) for f in sys.argv[1:])
print(c.fn.value, c.n.value.family, c.n.value.given, *c.org.value, sep="|")
print(*(t.value for t in c.tel_list), *(e.value for e in c.email_list), sep="|")
print(c.note.value.replace("\n", "<LF>"), *c.categories.value, company.fn.value, sep="|")
)";
  std::string files;
  for (const auto& i : {c, company}) files += " '" + dynamic_cast<VdirItem&>(*i).FilePath() + "'";
  ASSERT_EQ(run("/usr/bin/python3 " + script + files, out), 0) << testing::readFile(out);
  // The company card, without a person name, still has a display name (the last field).
  EXPECT_EQ(testing::readFile(out),
            "Jürgen Müller|Müller, Jr.|Jürgen|Smith; Jones & Partners|Tax\n"
            "+44 20 7946 0000|+44 7700 900123|juergen@example.com|jkm@example.org\n"
            "First line<LF>second, with comma|Business|VIP|Åkesson Bygg AB\n");
}

}  // namespace
}  // namespace dossync::vdir
