// The printer over trees of values that the input describes: its text is that of the model, whatever fails on
// the way; afterwards the indentation is as before, and no count of an object has changed.
#include "print_model.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    using namespace tree;
    fuzz::Input choose(bytes, size);
    World world(choose);
    std::vector<int> counts;
    for (const auto &thing : world.things)
        counts.push_back(xrcgetcount(thing.get()));

    const int indent = static_cast<int>(choose.below(4)) - 1, depth = choose.once_in(10) ? 1 : 100;
    const bool quote = !choose.once_in(4), recursive = !choose.once_in(4);
    Model model(indent, quote, depth, recursive);
    {
        std::unique_ptr<printData> options(printData::Create(indent, quote, depth, recursive));
        std::unique_ptr<ioStringStream> stream(ioStringStream::Create());
        // Several prints share what was printed.
        for (unsigned i = 0, count = 1 + choose.below(3); i < count; ++i) {
            const xany value = i == 0 ? xany(static_cast<xobject *>(world.things[0].get())) : world.value();
            xrtti *type = world.declared();
            if (!type) type = value.getrtti() ? static_cast<xrtti *>(value.getrtti()) : get_xrttiany();
            model.print(type, value);
            type->printvalue(stream.get(), value, options.get());
        }
        const std::string seen = stream->getStr().Str();
        fuzz::require(seen == model.text, "expected:", model.text, "seen:", seen);
        fuzz::require(options->getIndent() == indent, "the indentation differs:", options->getIndent());
    }
    for (std::size_t i = 0; i < counts.size(); ++i) {
        const int count = xrcgetcount(world.things[i].get());
        // An object that was never held is marked by the first who does.
        fuzz::require(count == counts[i] || (counts[i] == 0 && count == -1), "counts:", counts[i], count);
    }
    return 0;
}
