// User accounts from passwd lines.
#include <gtest/gtest.h>

#include <string>

#include "collectors/system/users.h"
#include "sys_tree_text.h"
#include "zxml/zXML.h"

namespace {

std::string account_text(const std::string& line, long long min = -1, long long max = -1) {
  zXML doc(true, "Snapshot");
  add_user_account(doc.top(), line, min, max);
  const ztag* accounts = doc.top()->find_child("User-accounts");
  if (accounts == nullptr || accounts->children().empty()) return "<none>";
  return tree_text(accounts->child_at(0));
}

}  // namespace

TEST(SysUsers, PasswdLines) {
  struct Case {
    const char* what;
    const char* line;
    const char* expected;
  };
  const Case cases[] = {
      {"plain root entry", "root:x:0:0:root:/root:/bin/sh",
       "*usr-acc:root=root\nid=0\nis-system-user=1\ngroup=0\nfullname=root\nhdir=/root\n"
       "shell=/bin/sh\n"},
      {"all four comment pieces", "jane:x:1000:100:Jane Doe,Room 1,555-1,555-2:/home/jane:/bin/ash",
       "*usr-acc:jane=jane\nid=1000\nis-system-user=1\ngroup=100\nfullname=Jane Doe\n"
       "location=Room 1\nwphone=555-1\nhphone=555-2\nhdir=/home/jane\nshell=/bin/ash\n"},
      {"pieces past the fourth are dropped", "a:x:5:5:A,B,C,D,E:/h:/s",
       "*usr-acc:a=a\nid=5\nis-system-user=1\ngroup=5\nfullname=A\nlocation=B\nwphone=C\n"
       "hphone=D\nhdir=/h\nshell=/s\n"},
      {"two pieces, the others not written", "b:x:6:6:Bob,Lab:/h:/s",
       "*usr-acc:b=b\nid=6\nis-system-user=1\ngroup=6\nfullname=Bob\nlocation=Lab\nhdir=/h\n"
       "shell=/s\n"},
      {"empty comment writes no comment attributes", "daemon:x:2:2::/var:/sbin/nologin",
       "*usr-acc:daemon=daemon\nid=2\nis-system-user=1\ngroup=2\nhdir=/var\n"
       "shell=/sbin/nologin\n"},
      {"comment field missing: the path is the home directory",
       "nobody:x:99:99:/nonexistent:/bin/false",
       "*usr-acc:nobody=nobody\nid=99\nis-system-user=1\ngroup=99\nhdir=/nonexistent\n"
       "shell=/bin/false\n"},
      {"a comment starting with / that has both fields after it", "svc:x:7:7:/opt,x:/srv:/bin/sh",
       "*usr-acc:svc=svc\nid=7\nis-system-user=1\ngroup=7\nfullname=/opt\nlocation=x\nhdir=/srv\n"
       "shell=/bin/sh\n"},
      {"carriage return removed from the shell", "dos:x:8:8:Dos:/d:/bin/sh\r",
       "*usr-acc:dos=dos\nid=8\nis-system-user=1\ngroup=8\nfullname=Dos\nhdir=/d\n"
       "shell=/bin/sh\n"},
      {"the shell keeps further colons", "odd:x:9:9:Odd:/o:/bin/sh:extra",
       "*usr-acc:odd=odd\nid=9\nis-system-user=1\ngroup=9\nfullname=Odd\nhdir=/o\n"
       "shell=/bin/sh:extra\n"},
      {"truncated line: empty fields", "cut:x:10",
       "*usr-acc:cut=cut\nid=10\nis-system-user=1\ngroup=\nhdir=\nshell=\n"},
      {"id -1 is the only ordinary user with the scan's bounds", "m:x:-1:0:M:/m:/s",
       "*usr-acc:m=m\nid=-1\nis-system-user=0\ngroup=0\nfullname=M\nhdir=/m\nshell=/s\n"},
      {"empty line", "", "<none>"},
  };
  for (const Case& c : cases) EXPECT_EQ(account_text(c.line), c.expected) << c.what;
}

TEST(SysUsers, RegularIdRangeIsInclusive) {
  EXPECT_NE(account_text("u:x:1000:1:U:/u:/s", 1000, 60000).find("is-system-user=0\n"),
            std::string::npos);
  EXPECT_NE(account_text("u:x:60000:1:U:/u:/s", 1000, 60000).find("is-system-user=0\n"),
            std::string::npos);
  EXPECT_NE(account_text("u:x:999:1:U:/u:/s", 1000, 60000).find("is-system-user=1\n"),
            std::string::npos);
  // Ids too large for 64 bits saturate instead of overflowing.
  EXPECT_NE(
      account_text("u:x:99999999999999999999:1:U:/u:/s", 1000, 60000).find("is-system-user=1\n"),
      std::string::npos);
}

TEST(SysUsers, OnlyCompleteLinesAndOneChildPerName) {
  zXML doc(true, "Snapshot");
  record_user_accounts(doc.top(),
                       "root:x:0:0:root:/:/bin/sh\n"
                       "\n"
                       "root:x:0:1:Again:/root:/bin/ash\n"
                       "lost:x:500:500:No line end:/home/lost:/bin/sh");
  EXPECT_EQ(tree_text(doc.top()->find_child("User-accounts")),
            "+User-accounts=\n"
            "*usr-acc:root=root\nid=0\nis-system-user=1\ngroup=1\nfullname=Again\nhdir=/root\n"
            "shell=/bin/ash\n"
            "-\n");

  zXML empty(true, "Snapshot");
  record_user_accounts(empty.top(), "");
  record_user_accounts(empty.top(), "no-line-end:x:1:1::/:/bin/sh");
  EXPECT_EQ(empty.top()->find_child("User-accounts"), nullptr);
}
