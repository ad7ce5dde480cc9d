// Text: the same bytes through the encoder and through an istream give the same codes, values and positions,
// and numbers that were read are written as an ostream writes them.
#include "encoded_input.h"

namespace {

using namespace encoders;

Ascii ascii;

template <class Value, class Read>
ioTryCode compare(Source &ours, Source &theirs, std::size_t i, Read read) {
    Value value{77}, expected{77};
    const ioTryCode code = read(value, &ours), wanted = judge(expected, theirs);
    require(code == wanted, "the codes differ", i, theirs.position());
    require(std::memcmp(&value, &expected, sizeof value) == 0, "the values differ", i, theirs.position());
    return code;
}

ioTryCode compare_field(Source &ours, Source &theirs, std::size_t i, char delimiter) {
    const char delimiters[] = {delimiter, 0};
    xstring value("unchanged");
    std::string expected = "unchanged";
    const ioTryCode code = ascii.RdString(value, &ours, delimiters);
    require(code == judge(expected, theirs, delimiter ? delimiter : '\n'), "the codes differ", i,
            theirs.position());
    require(expected == value.Str(), "the texts differ", i, theirs.position());
    return code;
}

template <class Value, class Write, class Size>
void compare_written(Value value, Write write, Size size) {
    std::stringbuf ours, theirs;
    std::ostream(&theirs) << value;
    require((ascii.*write)(value, &ours) == ioSuccess && ours.str() == theirs.str(), "written differently", 0,
            0);
    require((ascii.*size)(value) == theirs.str().size(), "the size is another", 0, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    const EncodedInput input(bytes, size);
    Source ours(input.data, input.piece), theirs(input.data, input.piece);
    auto code = ioSuccess;
    for (std::size_t i = 0; code == ioSuccess; ++i) {
        switch (input.type(i)) {
            case EncodedInput::Byte:
                code =
                    compare<char>(ours, theirs, i, [](char &v, auto *from) { return ascii.RdByte(v, from); });
                break;
            case EncodedInput::Int:
                code = compare<int>(ours, theirs, i, [](int &v, auto *from) {
                    const ioTryCode read = ascii.RdInt(v, from);
                    compare_written(v, &Ascii::WrInt, &Ascii::SzInt);
                    return read;
                });
                break;
            case EncodedInput::Bool:
                code = compare<unsigned char>(
                    ours, theirs, i, [](unsigned char &v, auto *from) { return ascii.RdBool(v, from); });
                break;
            case EncodedInput::Real:
                code = compare<double>(ours, theirs, i, [](double &v, auto *from) {
                    const ioTryCode read = ascii.RdReal(v, from);
                    compare_written(v, &Ascii::WrReal, &Ascii::SzReal);
                    return read;
                });
                break;
            default:
                code = compare_field(ours, theirs, i, input.types[i % input.types.size()]);
        }
        require(ours.position() == theirs.position(), "the positions differ", i, theirs.position());
    }
    return 0;
}
