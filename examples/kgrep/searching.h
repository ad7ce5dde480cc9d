// Finds the lines of one input that match, block by block: a place that may match is sought in the whole
// block at once, and only the line around it is looked at.
#pragma once

#include "pattern.h"
#include "reading.h"

// Is told every line of an input, in order. Each function answers whether to go on.
class LineVisitor {
public:
    virtual ~LineVisitor() = default;
    // Whole lines without a match, with their ends.
    virtual bool OtherLines(const char *begin, const char *end) = 0;
    virtual bool MatchingLine(const Line &line) = 0;
    // A block is at its end. The NULs in the file so far make it binary.
    virtual bool BlockBegins(const Blocks &block) = 0;
    virtual void BlockEnds() = 0;
};

// Throws an Unreadable.
void VisitLines(Input &input, Blocks &blocks, Pattern &pattern, LineVisitor &visitor);
