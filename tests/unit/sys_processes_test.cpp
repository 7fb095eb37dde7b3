// Process listing and environment: heading lines, single-blank columns,
// the PATH annotation, complete lines only.
#include <gtest/gtest.h>

#include "collectors/system/environment.h"
#include "collectors/system/processes.h"
#include "test_support.h"
#include "zxml/zXML.h"

using test_support::tree_text;

TEST(SysProcesses, ColumnsAreCutAtSingleBlanks) {
  zXML doc(true, "Snapshot");
  record_processes(doc.top(),
                   "WID CID World Command\n--- --- ----- -------\n20 21 hostd /bin/hostd -c x.xml\n"
                   // Two blanks after the pid: the second column is empty and
                   // the world name moves into the third.
                   "1  init\n\n5 5 sh\n7 7 no-line-end /bin/sh");
  EXPECT_EQ(tree_text(doc.top()->find_child("Processes")),
            "+Processes=\n*process:1=hostd\npid=20\ncid=21\ncmd-line=/bin/hostd -c x.xml\n"
            "*process:2=init\npid=1\ncid=\ncmd-line=\n*process:3=\npid=\ncid=\ncmd-line=\n"
            "*process:4=sh\npid=5\ncid=5\ncmd-line=\n-\n");
}

TEST(SysEnvironment, VariablesAndThePathAnnotation) {
  zXML doc(true, "Snapshot");
  record_environment(doc.top(),
                     "PATH=/bin:/sbin\nOPTS=a=b\nNOEQUALS\nPATH=/usr/bin\nLAST=not read");
  EXPECT_EQ(tree_text(doc.top()->find_child("Environment")),
            "+Environment=\n"
            "env-var:PATH=\n~complex=\nenv-var:OPTS=\n~complex=\nenv-var:NOEQUALS=\n~complex=\n"
            "*env-var:PATH=PATH\nvalue=/usr/bin\n~split=:\nsystem=1\n"
            "*env-var:OPTS=OPTS\nvalue=a=b\nsystem=1\n"
            "*env-var:NOEQUALS=NOEQUALS\nvalue=\nsystem=1\n"
            "-\n");
}
