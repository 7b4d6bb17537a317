// Where an archive's entry names land below the extraction folder; the
// archives themselves are tested from LISP (tests/lisp/services_test.lsp).
#include <gtest/gtest.h>

#include "services/services.h"

namespace vantry::services {
namespace {

TEST(EntryPathInside, KeepsNamesInsideAndRefusesTheRest) {
  struct {
    const char *name;
    const char *lands;  // null: refused
  } cases[] = {
      {"a.txt", "a.txt"},
      {"std/sub/r\xc3\xa9seau.txt", "std/sub/r\xc3\xa9seau.txt"},
      {"std\\layers.csv", "std/layers.csv"},  // written on the host's platform
      {"./a//b/./c", "a/b/c"},
      {"std/", "std"},
      {"./", ""},
      {"a..b/..c", "a..b/..c"},  // dots inside a name are a name
      {"", nullptr},
      {"../x", nullptr},
      {"a/../../x", nullptr},
      {"a/..", nullptr},
      {"..\\x", nullptr},
      {"a\\..\\..\\x", nullptr},
      {"/etc/passwd", nullptr},
      {"\\server\\share", nullptr},
      {"C:\\evil.txt", nullptr},
      {"c:evil.txt", nullptr},
  };
  for (const auto &c : cases) {
    std::optional<std::string> got = entryPathInside(c.name);
    if (c.lands) {
      ASSERT_TRUE(got) << c.name;
      EXPECT_EQ(*got, c.lands) << c.name;
    } else {
      EXPECT_FALSE(got) << c.name << " landed at " << got.value_or("");
    }
  }
}

}  // namespace
}  // namespace vantry::services
