// Text: the same bytes through the encoder and through an istream give the same codes, values and positions,
// and numbers that were read are written as an ostream writes them.
#include "encoded_input.h"

namespace {

using namespace encoders;

Ascii ascii;

struct Comparison {
    Source &ours, &theirs;

    template <class Value, class Operation>
    ioTryCode read(Value &value, Operation operation) const {
        Value expected = value;
        const ioTryCode code = (ascii.*operation)(value, &ours);
        require(code == judge(expected, theirs), "the codes differ");
        require(std::memcmp(&value, &expected, sizeof value) == 0, "the values differ");
        return code;
    }
    ioTryCode read_field(char delimiter) const {
        const char delimiters[] = {delimiter, 0};
        xstring value("unchanged");
        std::string expected = "unchanged";
        const ioTryCode code = ascii.RdString(value, &ours, delimiters);
        require(code == judge(expected, theirs, delimiter ? delimiter : '\n'), "the codes differ");
        require(expected == value.Str(), "the texts differ");
        return code;
    }
    template <class Value, class Operation, class Size>
    void write(Value value, Operation operation, Size size) const {
        std::stringbuf written, expected;
        std::ostream(&expected) << value;
        require((ascii.*operation)(value, &written) == ioSuccess, "not written");
        require(written.str() == expected.str(), "written differently");
        require((ascii.*size)(value) == expected.str().size(), "the size is another");
    }
    void require(bool holds, const char *what) const {
        fuzz::require(holds, what, "read up to:", theirs.position());
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *bytes, std::size_t size) {
    const EncodedInput input(bytes, size);
    Source ours(input.data, input.piece), theirs(input.data, input.piece);
    const Comparison compare{ours, theirs};
    auto code = ioSuccess;
    for (std::size_t i = 0; code == ioSuccess; ++i) {
        char byte = 77;
        int integer = 77;
        unsigned char truth = 77;
        double real = 77;
        switch (input.type(i)) {
            case EncodedInput::Byte:
                code = compare.read(byte, &Ascii::RdByte);
                break;
            case EncodedInput::Int:
                code = compare.read(integer, &Ascii::RdInt);
                compare.write(integer, &Ascii::WrInt, &Ascii::SzInt);
                break;
            case EncodedInput::Bool:
                code = compare.read(truth, &Ascii::RdBool);
                break;
            case EncodedInput::Real:
                code = compare.read(real, &Ascii::RdReal);
                compare.write(real, &Ascii::WrReal, &Ascii::SzReal);
                break;
            default:
                code = compare.read_field(input.types[i % input.types.size()]);
        }
        compare.require(ours.position() == theirs.position(), "the positions differ");
    }
    return 0;
}
