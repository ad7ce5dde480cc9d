// From account files to declared values. A line that is malformed is reported as FILE:LINE: REASON on
// standard error and skipped; a file that cannot be read at all is an XFile.
#pragma once

#include <string>
#include <string_view>

#include "types.h"

// What reading a file gave, for the closing summary.
struct ReadCounts {
    int taken = 0;
    int skipped = 0;
};

// Lines that are empty or begin with # say nothing and count nowhere.
ReadCounts ReadAccounts(const char *path, Inventory &into);
// To be called after ReadAccounts: it enters every group into the accounts that belong to it.
ReadCounts ReadGroups(const char *path, Inventory &into);

// One line each; the file and the line's number are for the XMalformedLine that tells what is wrong.
xrchandle<Account> ParseAccount(std::string_view text, const char *file, int line);
xrchandle<Group> ParseGroup(std::string_view text, const char *file, int line);
