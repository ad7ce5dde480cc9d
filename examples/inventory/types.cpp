// The declared names and fields. This is all that a type needs in order to be printed, written and compared.
#include "types.h"

KEL_DEFINE_ENUM(ShellKind, "inventory::ShellKind", "shellDefault", "shellInteractive", "shellNone")

KEL_DEFINE_SEQUENCE(Names, "inventory::Names", kel::counted)
KEL_DEFINE_SEQUENCE(AccountList, "inventory::AccountList", kel::counted)
KEL_DEFINE_DICTIONARY(AccountIndex, "inventory::AccountIndex", kel::counted)
KEL_DEFINE_DICTIONARY(GroupIndex, "inventory::GroupIndex", kel::counted)

KEL_DEFINE_STRUCT(LoginShell, "inventory::LoginShell", kel::counted, kel::field<&LoginShell::Path>("Path"),
                  kel::field<&LoginShell::Kind>("Kind"))

KEL_DEFINE_STRUCT(Account, "inventory::Account", kel::counted, kel::field<&Account::Name>("Name"),
                  kel::field<&Account::Uid>("Uid"), kel::field<&Account::Gid>("Gid"),
                  kel::optional_field<&Account::FullName>("FullName"), kel::field<&Account::Home>("Home"),
                  kel::field<&Account::Shell>("Shell"), kel::field<&Account::Groups>("Groups"))

KEL_DEFINE_STRUCT(Group, "inventory::Group", kel::counted, kel::field<&Group::Name>("Name"),
                  kel::field<&Group::Gid>("Gid"), kel::field<&Group::Members>("Members"))

KEL_DEFINE_STRUCT(Inventory, "inventory::Inventory", kel::counted,
                  kel::field<&Inventory::Accounts>("Accounts"),
                  kel::field<&Inventory::GroupNames>("GroupNames"), kel::field<&Inventory::Groups>("Groups"))

KEL_DEFINE_EXCEPTION(XMalformedLine, "inventory::XMalformedLine", kel::counted)
KEL_DEFINE_EXCEPTION(XFile, "inventory::XFile", kel::counted)
KEL_DEFINE_EXCEPTION(XBadData, "inventory::XBadData", kel::counted)

bool Inventory::Add(const xrchandle<Account> &account) {
    if (ByName.haskey(account->Name)) return false;
    ByName.set(account->Name, account);
    Accounts.append(account);
    return true;
}

bool Inventory::Add(const xrchandle<Group> &group) {
    if (Groups.haskey(group->Name)) return false;
    Groups.set(group->Name, group);
    GroupNames.append(group->Name);
    return true;
}
