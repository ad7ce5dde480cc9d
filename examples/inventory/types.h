// The declared types of this example: what a machine's account files say, as values that print, encode and
// can be asked for their fields by name.
//
// An Inventory owns everything. Accounts and groups are counted objects held by handles; a list of names and
// a login shell are parts of the object around them (xauto: their storage is not theirs to give back).
#pragma once

#include <optional>

#include <kelstdmt/kelstdmt.h>

enum ShellKind { shellDefault, shellInteractive, shellNone };
KEL_DECLARE_ENUM(ShellKind)

KEL_SEQUENCE(Names, xstring)

KEL_DECLARE_STRUCT(LoginShell)
class LoginShell : public xobject {
    KEL_CLASS(LoginShell, xobject)
public:
    xstring Path;
    ShellKind Kind = shellDefault;
};

// One line of a passwd file.
KEL_DECLARE_STRUCT(Account)
class Account : public xobject {
    KEL_CLASS(Account, xobject)
public:
    xstring Name;
    int Uid = 0;
    int Gid = 0;
    std::optional<xstring> FullName;
    xstring Home;
    xauto<LoginShell> Shell;
    xauto<Names> Groups;  // the names of the groups that it belongs to, its primary group first
};
KEL_SEQUENCE(AccountList, xrchandle<Account>)
KEL_DICTIONARY(AccountIndex, xrchandle<Account>)

// One line of a group file.
KEL_DECLARE_STRUCT(Group)
class Group : public xobject {
    KEL_CLASS(Group, xobject)
public:
    xstring Name;
    int Gid = 0;
    xauto<Names> Members;
};
KEL_DICTIONARY(GroupIndex, xrchandle<Group>)

KEL_DECLARE_STRUCT(Inventory)
class Inventory : public xobject {
    KEL_CLASS(Inventory, xobject)
public:
    xauto<AccountList> Accounts;  // in the order of the file
    xauto<Names> GroupNames;      // in the order of the file
    xauto<GroupIndex> Groups;     // by name
    // The same accounts by name. Not a declared field: it is made again wherever accounts are read.
    AccountIndex ByName;

    // False when there is an account of that name already.
    bool Add(const xrchandle<Account> &account);
    bool Add(const xrchandle<Group> &group);
};

// A line of an account file that is not what it should be.
KEL_DECLARE_STRUCT(XMalformedLine)
class XMalformedLine : public kelXException {
    KEL_EXCEPTION(XMalformedLine, kelXException, "Malformed line.", (xstring, File), (int, Line),
                  (xstring, Reason))
};

// A file that cannot be read or written.
KEL_DECLARE_STRUCT(XFile)
class XFile : public kelXException {
    KEL_EXCEPTION(XFile, kelXException, "The file cannot be used.", (xstring, Path), (xstring, Reason))
};

// Encoded data that is no inventory.
KEL_DECLARE_STRUCT(XBadData)
class XBadData : public kelXException {
    KEL_EXCEPTION(XBadData, kelXException, "The data is no inventory.", (xstring, Reason))
};
