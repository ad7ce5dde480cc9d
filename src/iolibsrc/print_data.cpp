// The options of a print.
#include <kelstdmt/printlib.h>

#include "iolibsrc/printer.h"

const int printIndentSameLine = -1;

namespace {

// Most prints are of few values.
constexpr dsXACtrl small_steps{false, 8};

}  // namespace

printData::printData(int indent, xbool quote, int depth, xbool recursive) noexcept
    : m_Indent(indent),
      m_QuoteString(quote),
      m_Depth(depth),
      m_IsRecursive(recursive),
      m_printed(&small_steps) {}

printData::~printData() = default;

printData *printData::Create(int Indent, xbool QuoteString, int Depth, xbool IsRecursive) {
    return kel::construct_with<printData>([&](void *at) {
        return ::new (at)
            printData(kel::is_nil(Indent) ? 0 : Indent, kel::is_nil(QuoteString) ? xbool{1} : QuoteString,
                      kel::is_nil(Depth) ? 100 : Depth, IsRecursive ? xbool{1} : xbool{0});
    });
}
