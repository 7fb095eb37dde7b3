// Process listing: heading lines, single-blank columns, complete lines only.
#include <gtest/gtest.h>

#include <string>

#include "collectors/system/environment.h"
#include "collectors/system/processes.h"
#include "sys_tree_text.h"
#include "zxml/zXML.h"

TEST(SysProcesses, ColumnsAreCutAtSingleBlanks) {
  zXML doc(true, "Snapshot");
  record_processes(doc.top(),
                   "WID      CID      World Name            Command\n"
                   "-------  -------  --------------------  -------\n"
                   "2098403 2098403 hostd /bin/hostd ++min=0,swap /etc/vmware/hostd/config.xml\n"
                   // Two blanks after the pid: the second column is empty and the
                   // world name moves into the third.
                   "1  init\n"
                   "\n"
                   "5 5 sh\n"
                   "7 7 cut-off /bin/sh");
  EXPECT_EQ(
      tree_text(doc.top()->find_child("Processes")),
      "+Processes=\n"
      "*process:1=hostd\n"
      "pid=2098403\ncid=2098403\ncmd-line=/bin/hostd ++min=0,swap /etc/vmware/hostd/config.xml\n"
      "*process:2=init\n"
      "pid=1\ncid=\ncmd-line=\n"
      "*process:3=\n"
      "pid=\ncid=\ncmd-line=\n"
      "*process:4=sh\n"
      "pid=5\ncid=5\ncmd-line=\n"
      "-\n");
}

TEST(SysProcesses, HeadingsAloneGiveNoNode) {
  for (const char* listing : {"", "WID CID Name\n", "WID CID Name\n----\n", "a\nb\n1 1 x"}) {
    zXML doc(true, "Snapshot");
    record_processes(doc.top(), listing);
    EXPECT_EQ(doc.top()->find_child("Processes"), nullptr) << listing;
  }
}

TEST(SysEnvironment, VariablesAndThePathAnnotation) {
  zXML doc(true, "Snapshot");
  record_environment(doc.top(),
                     "PATH=/bin:/sbin\n"
                     "OPTS=a=b\n"
                     "NOEQUALS\n"
                     "PATH=/usr/bin\n"
                     "LAST=not read");
  EXPECT_EQ(tree_text(doc.top()->find_child("Environment")),
            "+Environment=\n"
            "env-var:PATH=\n~complex=\n"
            "env-var:OPTS=\n~complex=\n"
            "env-var:NOEQUALS=\n~complex=\n"
            "*env-var:PATH=PATH\n"
            "value=/usr/bin\n~split=:\n"
            "system=1\n"
            "*env-var:OPTS=OPTS\n"
            "value=a=b\n"
            "system=1\n"
            "*env-var:NOEQUALS=NOEQUALS\n"
            "value=\n"
            "system=1\n"
            "-\n");

  zXML empty(true, "Snapshot");
  record_environment(empty.top(), "");
  record_environment(empty.top(), "HALF=line");
  EXPECT_EQ(empty.top()->find_child("Environment"), nullptr);
}
