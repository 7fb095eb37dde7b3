// The environment: the PATH annotation, complete lines only. (The process
// listing's quirks, single-blank columns included, are in the hostile host's
// whole-document scan.)
#include <gtest/gtest.h>

#include "collectors/system/environment.h"
#include "test_support.h"

using test_support::branch_text;

TEST(SysEnvironment, VariablesAndThePathAnnotation) {
  const char* env = "PATH=/bin:/sbin\nOPTS=a=b\nNOEQUALS\nPATH=/usr/bin\nLAST=not read";
  EXPECT_EQ(branch_text("Environment", [&](ztag* top) { record_environment(top, env); }),
            "+Environment=\n"
            "env-var:PATH=\n~complex=\nenv-var:OPTS=\n~complex=\nenv-var:NOEQUALS=\n~complex=\n"
            "*env-var:PATH=PATH\nvalue=/usr/bin\n~split=:\nsystem=1\n"
            "*env-var:OPTS=OPTS\nvalue=a=b\nsystem=1\n"
            "*env-var:NOEQUALS=NOEQUALS\nvalue=\nsystem=1\n"
            "-\n");
}
