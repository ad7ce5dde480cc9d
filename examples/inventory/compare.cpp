// Both values are walked along their descriptors; nothing here knows an account.
#include "compare.h"

#include <sstream>

namespace {

class Walk {
public:
    Comparison result;

    // False at a difference. The place is written from the inside out, on the way back.
    bool Values(const xany &expected, const xany &found) {
        if (expected.getkind() == xany::Object && found.getkind() == xany::Object)
            return Objects(expected, found);
        ++result.values;
        if (expected == found) return true;
        std::ostringstream text;
        text << ": expected " << kel::printed(expected, true) << ", found " << kel::printed(found, true);
        result.difference = text.str();
        return false;
    }

    bool Objects(xobject *expected, xobject *found) {
        xrtticlass *type = expected->getrtti();
        if (!found->issameas(type))
            return Differ(": expected " + std::string(type->getname()) + ", found " +
                          std::string(found->gettypename()));
        if (type->isstruct()) return Fields(expected, found, static_cast<xrttistruct *>(type)->getfields());
        if (type->issequence()) return Elements(expected, found, static_cast<xrttisequence *>(type));
        if (type->isdictionary()) return Entries(expected, found, static_cast<xrttidictionary *>(type));
        return Differ(": values of " + std::string(type->getname()) + " cannot be compared");
    }

private:
    bool Differ(const std::string &text) {
        result.difference = text;
        return false;
    }
    bool In(const std::string &place) {
        result.difference.insert(0, place);
        return false;
    }
    bool Counts(int expected, int found) {
        ++result.values;
        return expected == found ||
               Differ(": expected " + std::to_string(expected) + " elements, found " + std::to_string(found));
    }

    bool Fields(xobject *expected, xobject *found, xrttifields *fields) {
        for (int i = 0; i < fields->getmapsize(); ++i) {
            xrttifield *field = fields->getbyindex(i);
            if (!Values(field->get(expected), field->get(found)))
                return In('.' + std::string(field->getname()));
        }
        return true;
    }

    bool Elements(xobject *expected, xobject *found, xrttisequence *type) {
        int count = type->getsize(expected);
        if (!Counts(count, type->getsize(found))) return false;
        for (int i = 0; i < count; ++i)
            if (!Values(type->get(i, expected), type->get(i, found)))
                return In('[' + std::to_string(i) + ']');
        return true;
    }

    // The same keys may lie in other slots.
    bool Entries(xobject *expected, xobject *found, xrttidictionary *type) {
        xstring key;
        int entries = 0, others = 0;
        for (int i = 0; i < type->getsize(found); ++i)
            others += type->getkey(i, found, key);
        for (int i = 0; i < type->getsize(expected); ++i) {
            xany wanted, there;
            if (!type->getkey(i, expected, key) || !type->get(i, expected, wanted)) continue;
            ++entries;
            if (!type->find(key, found, there)) there = xany(kel::nil_int);
            if (!Values(wanted, there)) return In("[\"" + std::string(key) + "\"]");
        }
        return Counts(entries, others);
    }
};

}  // namespace

Comparison Compare(xobject *expected, xobject *found) {
    Walk walk;
    if (!walk.Objects(expected, found)) walk.result.difference.insert(0, expected->gettypename());
    return walk.result;
}
