// Printing: any value as readable text, driven by its descriptor alone. doc/printing.md shows the form.
//
// printData holds the options of a print and remembers which composite values were printed with it: an
// object that is met again shows as its type name and " <printed>", so shared and circular structures
// end. The entry points are xany::print, xobject::print and brtti::printvalue; kel.h has the same for a
// std::ostream.
#pragma once

#include <memory>

#include <kelstdmt/declare.h>
#include <kelstdmt/dssorted.h>

// An Indent that puts all on one line: every line break becomes a space.
extern KELSTDMT_API const int printIndentSameLine;

// A composite value that was printed: an object, or the data of an extern value.
class KELSTDMT_API printLoopCheckEntry {
public:
    printLoopCheckEntry() noexcept = default;
    printLoopCheckEntry(bool isplain, void *object) noexcept : plain(isplain), pointer(object) {}

    bool plain = true;        // not a counted object: an extern value, nil or uninit
    void *pointer = nullptr;  // the object as an xobject *, or the extern value's data
};

// Takes a reference on the object if it is counted, so that it stays alive while it is remembered; and
// gives it back.
KELSTDMT_API void printLoopCheckEntryLock(const printLoopCheckEntry &entry);
KELSTDMT_API void printLoopCheckEntryUnlock(const printLoopCheckEntry &entry);

// Entries by their pointers alone; each holds a reference as above.
class KELSTDMT_API printLoopCheckSet : public dsSortedSet<printLoopCheckEntry> {
public:
    using dsSortedSet<printLoopCheckEntry>::dsSortedSet;
    printLoopCheckSet() = default;
    ~printLoopCheckSet() override;

    // The distance of the pointers, cut to what an int holds.
    int Compare(printLoopCheckEntry a, printLoopCheckEntry b) const override;

protected:
    printLoopCheckEntry CopyKey(printLoopCheckEntry entry) override;
    void FreeKey(printLoopCheckEntry entry) override;
};

// The options of a print. One thread and one print at a time. What was printed is kept alive until the
// printData goes.
KEL_DECLARE_STRUCT(printData)
class KELSTDMT_API printData : public xobject {
    KEL_CLASS(printData, xobject)
public:
    ~printData() override;
    printData(const printData &) = delete;
    printData &operator=(const printData &) = delete;

    // A new one, owned by the caller. The nil marker of its type stands for an argument's default: Indent
    // 0, QuoteString true, Depth 100; IsRecursive is true for any byte but 0.
    static printData *Create(int Indent = kel::nil_int, xbool QuoteString = kel::nil_bool,
                             int Depth = kel::nil_int, xbool IsRecursive = kel::nil_bool);

    // The spaces ahead of a line, or printIndentSameLine. A print raises and lowers it, and leaves it as it
    // was.
    int getIndent() const noexcept { return m_Indent; }
    int setIndent(int value) noexcept { return m_Indent = value; }
    // Whether string values stand between double quotation marks. Nothing in them is escaped.
    xbool getQuoteString() const noexcept { return m_QuoteString; }
    xbool setQuoteString(xbool value) noexcept { return m_QuoteString = value; }
    // 1: a composite value shows only that it was skipped. Any other value expands everything.
    int getDepth() const noexcept { return m_Depth; }
    int setDepth(int value) noexcept { return m_Depth = value; }
    // Whether a struct's inherited fields are printed, ahead of its own.
    xbool getIsRecursive() const noexcept { return m_IsRecursive; }
    xbool setIsRecursive(xbool value) noexcept { return m_IsRecursive = value; }

private:
    printData(int indent, xbool quote, int depth, xbool recursive) noexcept;

    int m_Indent;
    xbool m_QuoteString;
    int m_Depth;
    xbool m_IsRecursive;
    printLoopCheckSet m_printed;                      // while they are few
    std::unique_ptr<kel::detail::printer> m_printer;  // all else; made by the first print

    friend class kel::detail::printer;
};
