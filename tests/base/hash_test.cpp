#include "base/hash.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "backends/vcard/entry_id.h"

namespace dossync {
namespace {

// Entry ids and pair states on disk were made with these values: a change of the hash would
// orphan every one of them.
TEST(HashTest, KeepsTheValuesStoredOnDisk) {
  EXPECT_EQ(hash::fnv1a(""), 0xcbf29ce484222325ULL);
  EXPECT_EQ(hash::fnv1a("a"), 0xaf63dc4c8601ec8cULL);
  EXPECT_EQ(hash::fnv1a("foobar"), 0x85944171f73967e8ULL);
  EXPECT_EQ(hash::fnv1a("bar", hash::fnv1a("foo")), hash::fnv1a("foobar"));
  EXPECT_EQ(vdir::hash128("mailto:anna@example.com"), "6b1e46cda28b927cf184e2de27c2ed0b");
}

}  // namespace
}  // namespace dossync
