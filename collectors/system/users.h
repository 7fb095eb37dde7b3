// Local user accounts from /etc/passwd, as children "usr-acc:NAME" of the
// "User-accounts" node.
#ifndef QUILLSCAN_COLLECTORS_SYSTEM_USERS_H_
#define QUILLSCAN_COLLECTORS_SYSTEM_USERS_H_

#include <string>

class ztag;

// Records one passwd line below top. An account whose user id lies within
// [regular_uid_min, regular_uid_max] is an ordinary user ("is-system-user"
// "0"), any other a system user ("1").
void add_user_account(ztag* top, const std::string& line, long long regular_uid_min,
                      long long regular_uid_max);

// Records every complete line of a passwd file, with both bounds -1: the
// agent reports every account with an ordinary user id as a system user.
void record_user_accounts(ztag* top, const std::string& passwd_text);

#endif  // QUILLSCAN_COLLECTORS_SYSTEM_USERS_H_
