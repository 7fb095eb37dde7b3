// User accounts from passwd text.
#include <gtest/gtest.h>

#include <string>

#include "collectors/system/users.h"
#include "test_support.h"

TEST(SysUsers, PasswdLines) {
  // passwd text and the accounts it gives ("" for no "User-accounts" node).
  // A missing comment field, huge ids, CR LF and broken lines are in the
  // simulated hosts' whole-document scans.
  const std::pair<const char*, const char*> cases[] = {
      // Comment pieces past the fourth are dropped.
      {"a:x:5:5:A,B,C,D,E:/h:/s\n",
       "*usr-acc:a=a\nid=5\nis-system-user=1\ngroup=5\nfullname=A\nlocation=B\nwphone=C\n"
       "hphone=D\nhdir=/h\nshell=/s\n"},
      // A comment starting with "/" but with both fields after it.
      {"s:x:7:7:/opt,x:/srv:/f\n",
       "*usr-acc:s=s\nid=7\nis-system-user=1\ngroup=7\nfullname=/opt\nlocation=x\nhdir=/srv\n"
       "shell=/f\n"},
      // "\r" removed from the shell, which keeps further colons.
      {"d:x:8:8:D:/d:/bin/sh:x\r\n",
       "*usr-acc:d=d\nid=8\nis-system-user=1\ngroup=8\nfullname=D\nhdir=/d\nshell=/bin/sh:x\n"},
      {"cut:x:10\n", "*usr-acc:cut=cut\nid=10\nis-system-user=1\ngroup=\nhdir=\nshell=\n"},
      // The scan's ordinary id range is -1 to -1, inclusive.
      {"m:x:-1:0::/m:/s\n", "*usr-acc:m=m\nid=-1\nis-system-user=0\ngroup=0\nhdir=/m\nshell=/s\n"},
      // A name listed twice fills one child; empty lines and a last line
      // without its line end are skipped.
      {"r:x:0:0:R:/:/s\n\nr:x:0:1:Again:/r:/t\nlost:x:5:5::/:/s",
       "*usr-acc:r=r\nid=0\nis-system-user=1\ngroup=1\nfullname=Again\nhdir=/r\nshell=/t\n"},
      {"\nlost:x:5:5::/:/s", ""},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(test_support::branch_text("User-accounts",
                                        [&](ztag* top) { record_user_accounts(top, c.first); }),
              *c.second ? "+User-accounts=\n" + std::string(c.second) + "-\n" : "")
        << c.first;
  }
}
