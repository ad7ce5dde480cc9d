// The printer of one printData. Composite values that are being written are frames on a stack of its own,
// so the native stack stays flat however deep a structure is: an object's default way of printing itself
// only pushes a frame, and whoever began the print goes on with it.
//
// Where a class has its own onprint, or a descriptor its own OnRoutePrint, and prints parts of itself from
// there, a print runs inside a print. That nests natively, and is bounded by the stack that it takes.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <vector>

#include <kelstdmt/printlib.h>
#include <kelstdmt/xrtti.h>

#include "iolibsrc/print_memory.h"
#include "iolibsrc/print_writer.h"

namespace kel::detail {

class printer {
public:
    explicit printer(printData &options) : m_options(options) {}
    printer(const printer &) = delete;
    printer &operator=(const printer &) = delete;

    // A print from outside: what fails is told on the stream, and by false.
    static bool Print(brtti &type, ioStream *stream, xany &&value, printData *options);

    // A part of a print, complete when the call returns; what fails is thrown.
    using routine = void (printer::*)(brtti &type, xany &&value);
    static void PrintPart(routine what, brtti &type, ioStream *stream, xany &&value, printData *options);

    // The routines. They write a value, or push the frame of one that is composite.
    void Value(brtti &type, xany &&value);      // PrintImpl
    void Composite(brtti &type, xany &&value);  // PrintClassImpl

    // While an object is asked to print itself from within a print. If it does so in the default way, its
    // frame is pushed.
    class question {
    public:
        question(printData *options, xobject *object) noexcept;
        ~question();
        question(const question &) = delete;
        question &operator=(const question &) = delete;

    private:
        printer *m_printer;
    };
    static printer *AskedFor(xobject *object, ioStream *stream, printData *options) noexcept;
    // The printer at work on the stream with these options, or null.
    static printer *AtWork(ioStream *stream, printData *options) noexcept;

private:
    // What a composite value consists of, in the order in which it is written.
    enum contents : unsigned char { Array = 1, Sequence = 2, Struct = 4, Dictionary = 8, Union = 16 };

    // The place in an array. Dimensions ahead of the last stand in brackets of their own.
    struct grid {
        std::vector<int> sizes, at;
        std::size_t dimension = 0;

        bool in_last() const noexcept { return dimension + 1 == sizes.size(); }
        bool more() const noexcept { return at[dimension] < sizes[dimension]; }
        bool at_last() const noexcept { return at[dimension] == sizes[dimension] - 1; }
    };

    // A composite value that is being written. There may be millions.
    struct frame {
        frame(brtti &described, xany &&composite, unsigned content, char bracket, int around)
            : type(&described),
              value(std::move(composite)),
              outer(around),
              left(static_cast<unsigned char>(content)),
              closing(bracket) {}

        brtti *type;
        xany value;
        brtti *level = nullptr;  // the struct, itself or a parent, whose fields are being written
        std::size_t levels = 0;  // where the levels that follow begin
        int outer;               // Indent around the composite
        int indent = 0;          // of the items
        int index = 0;           // of the item
        int count = 0;
        unsigned char left;         // contents still to be written
        unsigned char present = 0;  // the one that is being written
        char closing;
        bool initem = false;  // its value is not complete
        std::unique_ptr<grid> place;
        std::unique_ptr<xany> discriminator;
    };

    class scope;

    void Finish(std::size_t base);
    void Advance();
    bool OpenContent(frame &at);
    void OpenStruct(frame &at);
    void OpenArray(frame &at);
    void Close(frame &at);

    // Writes what stands ahead of an item's value; false when there are no more items.
    bool BeginItem(frame &at, xany &value, brtti *&declared);
    bool BeginCell(frame &at, xany &value, brtti *&declared);
    bool BeginElement(frame &at, xany &value, brtti *&declared);
    bool BeginField(frame &at, xany &value, brtti *&declared);
    bool BeginEntry(frame &at, xany &value, brtti *&declared);
    bool BeginCase(frame &at, xany &value, brtti *&declared);
    void EndItem(frame &at);
    bool Scalar(const xany &value);
    void FieldValue(xany &&value, brtti *declared);

    void PushParents(brtti &type, int depth);
    bool Remembers(const void *pointer) const;
    void Remember(const printLoopCheckEntry &value);
    void Report();

    void LineBreak(int indent);
    void Indentation(int indent);
    static int Raised(int indent) noexcept;
    static int Lowered(int indent) noexcept;

    printData &m_options;
    print_writer m_out;
    xobject *m_asked = nullptr;
    std::deque<frame> m_frames;
    std::vector<brtti *> m_levels;  // of all frames, each frame's levels in reverse
    print_memory m_memory;          // what was printed, once it is much
};

}  // namespace kel::detail
