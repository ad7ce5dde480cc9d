// The variant value: kinds and markers, copies and their counts, conversions, comparison.
#include "observing.h"

#include <cmath>
#include <cstring>
#include <random>
#include <variant>

namespace {

enum Colour : int { red, green, blue };
KEL_DECLARE_ENUM(Colour)
KEL_DEFINE_ENUM(Colour, "value::Colour", "red", "green", "blue")

int alive = 0;

KEL_DECLARE_STRUCT(Counted)
class Counted : public xobject {
    KEL_CLASS(Counted, xobject)
public:
    Counted() { ++alive; }
    ~Counted() override { --alive; }
};
KEL_DEFINE_STRUCT(Counted, "value::Counted", kel::counted)

KEL_DECLARE_STRUCT(Owned)
class Owned : public xobject {
    KEL_CLASS(Owned, xobject)
};
KEL_DEFINE_STRUCT(Owned, "value::Owned", kel::uncounted)

// The descriptor of a foreign type; counts how many of it live.
class Foreign : public xrtti {
public:
    static inline int living = 0;
    explicit Foreign(bool cloneable) : m_cloneable(cloneable) {
        initialize("value::Foreign");
        ++living;
    }
    ~Foreign() override { --living; }

private:
    brtti *Clone() override { return m_cloneable ? new Foreign(true) : brtti_clone(); }
    brtti *brtti_clone() { kelXCannotCloneRTTI::Throw(getname()); }
    bool m_cloneable;
};

TEST(Value, MarkersAreExactToTheBit) {
    EXPECT_EQ(static_cast<unsigned>(kel::uninit_int), 0x80000001U);
    EXPECT_EQ(static_cast<unsigned>(kel::nil_int), 0x80000000U);
    EXPECT_EQ(kel::uninit_bool, 0x81);
    EXPECT_EQ(kel::nil_bool, 0x80);
    EXPECT_EQ(kel::uninit_real, 9e125);
    EXPECT_EQ(kel::nil_real, std::nextafter(1e126, INFINITY));
    EXPECT_EQ(std::bit_cast<std::uint64_t>(kel::nil_real), 0x5A17A2ECC414A040U);
}

TEST(Value, AMarkerNeverStaysUnderAValueKind) {
    for (const xany &value :
         {xany(), xany(kel::uninit_int), xany(kel::uninit_bool), xany(kel::uninit_real),
          xany(kel::uninit_text()), xany(kel::uninit_object()), xany(kel::uninit_int, xrtti_get_p_Colour()),
          xany(kel::uninit_pointer(), nullptr), kel::detail::to_any(Colour(INT_MIN + 1))}) {
        EXPECT_EQ(value.getkind(), xany::Uninit);
        EXPECT_EQ(static_cast<int>(value), kel::uninit_int);
        EXPECT_EQ(static_cast<xobject *>(value), kel::uninit_object());
        EXPECT_EQ(static_cast<xrstring>(value), kel::uninit_text());
        EXPECT_EQ(static_cast<xextern>(value).value, kel::uninit_pointer());
        EXPECT_TRUE(kel::is_uninit(value.getbool()) && kel::is_uninit(value.getreal()));
        EXPECT_TRUE(value.isobject() && value.isenum() && value.isextern());
        EXPECT_TRUE(value == kel::uninit_text() && !(value == kel::nil_text()));
        EXPECT_EQ(value.getrtti(), nullptr);
    }
    for (const xany &value :
         {xany(kel::nil_int), xany(kel::nil_bool), xany(kel::nil_real), xany(kel::nil_text()),
          xany(static_cast<const char *>(nullptr)), xany(xstring()), xany(static_cast<xobject *>(nullptr)),
          xany(kel::nil_int, xrtti_get_p_Colour()), xany(3, xrtti_get_p_Colour()), xany(nullptr, nullptr),
          kel::detail::to_any(Colour(3))}) {
        EXPECT_EQ(value.getkind(), xany::Nil);
        EXPECT_EQ(static_cast<int>(value), kel::nil_int);
        EXPECT_EQ(static_cast<xobject *>(value), nullptr);
        EXPECT_EQ(static_cast<xrstring>(value), kel::nil_text());
        EXPECT_EQ(static_cast<xextern>(value).value, nullptr);
        EXPECT_TRUE(kel::is_nil(value.getbool()) && kel::is_nil(value.getreal()));
        EXPECT_TRUE(value.isobject() && value.isenum() && value.isextern());
        EXPECT_TRUE(value == kel::nil_text() && !(value == kel::uninit_text()));
        EXPECT_EQ(value.getrtti(), nullptr);
    }
}

TEST(Value, KindsFollowTheConstructor) {
    EXPECT_EQ(xany(true).getkind(), xany::Bool);
    EXPECT_EQ(xany(xbool{1}).getkind(), xany::Bool);
    EXPECT_EQ(xany(7).getkind(), xany::Int);
    EXPECT_EQ(xany(7.0).getkind(), xany::Real);
    EXPECT_EQ(xany("").getkind(), xany::String);
    EXPECT_EQ(xany(1, xrtti_get_p_Colour()).getkind(), xany::Enum);
    EXPECT_EQ(xany(7, xrtti_get_p_Colour()).getkind(), xany::Enum);
    static_assert(!std::is_convertible_v<void *, xany> && !std::is_convertible_v<int *, xany>);
    EXPECT_EQ(xany(nullptr).getkind(), xany::Nil);
    // A literal 0 is a number, wherever it stands.
    xany zero;
    zero = 0;
    EXPECT_EQ(zero.getkind(), xany::Int);
    EXPECT_TRUE(zero == 0 && 0 == zero && zero != 1 && !(zero == false) && !(zero == 0.0));
    EXPECT_TRUE(xany(true) == true && xany(1.5) == 1.5 && !(xany() == 0) && !(xany(kel::nil_int) == 0));
    zero = nullptr;
    EXPECT_TRUE(zero.isnil() && zero == nullptr);
    // A neighbour of a marker is an ordinary real, and not-a-number is one too.
    EXPECT_EQ(xany(1e126).getkind(), xany::Real);
    EXPECT_EQ(xany(std::nan("")).getkind(), xany::Real);

    auto wrong = thrown_by<kelXNotEnumType>([] { xany(1, get_xrttiint()); });
    EXPECT_EQ(text(wrong->getTypeName()), "int");
}

// The record that C callers see: the kind, then the payload at the next place that fits it.
TEST(Value, RecordLayout) {
    std::uint32_t words[2];
    xany value(0x12345678);
    std::memcpy(words, &value, sizeof words);
    EXPECT_EQ(words[0], 2U);
    xint payload;
    std::memcpy(&payload, reinterpret_cast<char *>(&value) + 8, sizeof payload);
    EXPECT_EQ(payload, 0x12345678);
    EXPECT_EQ(sizeof(xany), 8 + 2 * sizeof(void *));
}

// Values beside a std::variant that does the same.
using Model = std::variant<std::monostate, std::nullptr_t, int, bool, double, std::string>;

xany value_of(const Model &model) {
    struct {
        xany operator()(std::monostate) { return {}; }
        xany operator()(std::nullptr_t) { return kel::nil_int; }
        xany operator()(int v) { return v; }
        xany operator()(bool v) { return v; }
        xany operator()(double v) { return v; }
        xany operator()(const std::string &v) { return v.c_str(); }
    } make;
    return std::visit(make, model);
}

bool matches(const xany &value, const Model &model) {
    if (value.getkind() != static_cast<xany::Kind>(model.index())) return false;
    switch (value.getkind()) {
        case xany::Int:
            return static_cast<int>(value) == std::get<int>(model);
        case xany::Bool:
            return value.getbool() == std::get<bool>(model);
        case xany::Real:
            return value.getreal() == std::get<double>(model);
        case xany::String:
            return std::get<std::string>(model) == static_cast<xrstring>(value) &&
                   std::get<std::string>(model) == kel::view(value.getstring());
        default:
            return true;
    }
}

TEST(Value, CopiesMovesAndComparesLikeAVariant) {
    std::mt19937 random(7);
    auto any_model = [&]() -> Model {
        switch (random() % 6) {
            case 0:
                return {};
            case 1:
                return nullptr;
            case 2:
                return static_cast<int>(random() % 3);
            case 3:
                return random() % 2 == 0;
            case 4:
                return static_cast<double>(random() % 3);
            default:
                return std::string(random() % 3, 'x');
        }
    };
    std::vector<xany> values(8);
    std::vector<Model> models(8);
    for (int step = 0; step < 20000; ++step) {
        std::size_t to = random() % 8, from = random() % 8;
        switch (random() % 4) {
            case 0:
                models[to] = any_model();
                values[to] = value_of(models[to]);
                break;
            case 1:
                models[to] = models[from];
                values[to] = values[from];
                break;
            case 2:
                models[to] = models[from];
                values[to] = std::move(values[from]);
                if (to != from) models[from] = Model();
                break;
            default: {
                xany copy(values[from]), moved(std::move(values[to]));
                ASSERT_TRUE(values[to].isuninit());
                values[to] = std::move(moved);
                ASSERT_TRUE(matches(copy, models[from]));
            }
        }
        ASSERT_TRUE(matches(values[to], models[to]) && matches(values[from], models[from])) << step;
        ASSERT_EQ(values[to] == values[from], models[to] == models[from]) << step;
        if (values[to] == values[from]) {
            ASSERT_EQ(values[to].hash(), values[from].hash());
        }
    }
}

TEST(Value, TextsAreSharedAndComparedByContent) {
    xstring original("shared");
    xany value(original), copy(value), other("shared");
    EXPECT_EQ(static_cast<xrstring>(copy), original.Str());
    EXPECT_NE(static_cast<xrstring>(other), original.Str());
    EXPECT_TRUE(value == other && value == "shared" && !(value == "share"));
    EXPECT_FALSE(value == static_cast<const char *>(nullptr));
    EXPECT_EQ(value.getstring().Str(), original.Str());
    original = "changed";
    EXPECT_STREQ(static_cast<xrstring>(value), "shared");
    value = *&value;
    value = copy;
    EXPECT_STREQ(static_cast<xrstring>(value), "shared");
}

TEST(Value, EqualityIsByKindAndValue) {
    xany five(5), colour(1, xrtti_get_p_Colour());
    EXPECT_FALSE(xany(1) == colour || colour == xany(1) || xany(1) == xany(true) || five == xany(5.0));
    EXPECT_TRUE(colour == kel::detail::to_any(green));
    EXPECT_TRUE(xany(0.0) == xany(-0.0));
    EXPECT_EQ(xany(0.0).hash(), xany(-0.0).hash());
    EXPECT_FALSE(xany(std::nan("")) == xany(std::nan("")));
    EXPECT_FALSE(xany() == xany(kel::nil_int) || five == "5");
    int a = 0, b = 0;
    EXPECT_TRUE(xany(&a, new Foreign(true)) == xany(&a, new Foreign(true)));
    EXPECT_FALSE(xany(&a, new Foreign(true)) == xany(&b, new Foreign(true)));
}

TEST(Value, IsComparedWithStringsAndObjects) {
    const xany five(5), text("text"), nil(kel::nil_int), uninit;
    EXPECT_TRUE(text == xstring("text") && xstring("text") == text && nil == xstring());
    EXPECT_FALSE(five == xstring("5") || uninit == xstring());
    EXPECT_TRUE(xany(0x80000001) == uninit && xany(0x80000000) == nil && xany(5U) == five);

    // A counted object that nobody holds yet would not survive a value of its own.
    std::unique_ptr<xobject> fresh(new kelXArgs);
    const xobject *none = nullptr;
    EXPECT_FALSE(five == fresh.get() || nil == fresh.get());
    EXPECT_EQ(xrcgetcount(fresh.get()), 0);
    EXPECT_TRUE(nil == none && uninit == kel::uninit_object() && kel::uninit_object() == uninit);
    xauto<xobject> held;
    EXPECT_TRUE(xany(&held) == &held);
}

TEST(Value, ObjectsAreCountedByTheirClass) {
    auto *counted = kel::construct<Counted>();
    {
        xany value(counted);
        EXPECT_EQ(xrcgetcount(counted), 1);
        {
            xany copy(value), assigned;
            assigned = value;
            EXPECT_EQ(xrcgetcount(counted), 3);
            xany moved(std::move(copy));
            EXPECT_EQ(xrcgetcount(counted), 3);
            EXPECT_TRUE(copy.isuninit() && moved == value && assigned == value);
        }
        EXPECT_EQ(xrcgetcount(counted), 1);
        EXPECT_EQ(value.getrtti(), xrtti_get_p_Counted());
        EXPECT_EQ(static_cast<xobject *>(value), counted);
    }
    EXPECT_EQ(alive, 0);

    Owned owned, other;
    {
        xany value(&owned), copy(value);
        EXPECT_EQ(xrcgetcount(&owned), -1);
        EXPECT_TRUE(value == copy && !(value == xany(&other)));
    }
    EXPECT_EQ(xrcgetcount(&owned), -1);
}

TEST(Value, OneThatHoldsAnObjectOrAnExternIsNotReused) {
    internal_errors errors;
    const std::string report = "Can not reuse xany. (services/xobject)";
    xrchandle<Counted> first(kel::construct<Counted>()), second(kel::construct<Counted>());
    int place = 0;
    {
        xany held(first), scalar(5), foreign(&place, new Foreign(true));
        held = scalar;
        EXPECT_EQ(errors.take(), report);
        held = xany(6);
        EXPECT_EQ(errors.take(), report);
        held = static_cast<xobject *>(second);
        EXPECT_EQ(errors.take(), report);
        held = *&held;
        EXPECT_EQ(errors.take(), report);
        foreign = scalar;
        EXPECT_EQ(errors.take(), report);
        EXPECT_TRUE(held == xany(first) && static_cast<xextern>(foreign).value == &place);
        EXPECT_EQ(xrcgetcount(second), 1);

        // A fresh object is not taken up, and lost, by an assignment that is refused.
        auto *fresh = kel::construct<Counted>();
        held = fresh;
        EXPECT_EQ(errors.take(), report);
        EXPECT_EQ(xrcgetcount(fresh), 0);
        xrcrelease(fresh);

        scalar = static_cast<xobject *>(second);
        xany text("text");
        text = scalar;
        EXPECT_EQ(xrcgetcount(second), 3);
        EXPECT_EQ(errors.take(), "");
    }
    EXPECT_EQ(xrcgetcount(first), 1);
    EXPECT_EQ(xrcgetcount(second), 1);
    EXPECT_EQ(Foreign::living, 0);
}

TEST(Value, ExternsOwnTheirDescriptor) {
    int place = 0;
    {
        xany value(&place, new Foreign(true)), copy(value), assigned("text");
        assigned = copy;
        EXPECT_EQ(Foreign::living, 3);
        xany moved(std::move(copy));
        EXPECT_EQ(Foreign::living, 3);
        EXPECT_NE(assigned.getrtti(), value.getrtti());
        EXPECT_EQ(text(assigned.gettypename()), "value::Foreign");
        EXPECT_EQ(static_cast<xextern>(moved).value, &place);
        // What is no value needs no descriptor.
        EXPECT_TRUE(xany(nullptr, new Foreign(true)).isnil());
        EXPECT_TRUE(xany(kel::uninit_pointer(), new Foreign(true)).isuninit());
        EXPECT_EQ(Foreign::living, 3);

        xany rigid(&place, new Foreign(false)), target("kept");
        auto refused = thrown_by<kelXCannotCloneRTTI>([&] { target = rigid; });
        EXPECT_EQ(text(refused->getTypeName()), "value::Foreign");
        EXPECT_TRUE(target == "kept");
        thrown_by<kelXCannotCloneRTTI>([&] { xany failed(rigid); });
    }
    EXPECT_EQ(Foreign::living, 0);
}

TEST(Value, AWrongConversionIsReportedAndGivesUninit) {
    internal_errors errors;
    Owned owned;
    int place = 0;
    const xany values[] = {xany(1),
                           xany(true),
                           xany(1.5),
                           xany("text"),
                           xany(1, xrtti_get_p_Colour()),
                           xany(&owned),
                           xany(&place, new Foreign(true))};
    for (const xany &value : values) {
        xany::Kind kind = value.getkind();
        auto expected = [&](bool fits, const char *target) {
            return fits ? "" : "Can not convert xany to " + std::string(target) + ". (services/xobject)";
        };
        bool number = kind == xany::Int || kind == xany::Enum;
        EXPECT_EQ(static_cast<int>(value), number ? 1 : kel::uninit_int);
        EXPECT_EQ(errors.take(), expected(number, "xint"));
        EXPECT_EQ(static_cast<xobject *>(value), kind == xany::Object ? &owned : kel::uninit_object());
        EXPECT_EQ(errors.take(), expected(kind == xany::Object, "xobject"));
        xrstring chars = value;
        EXPECT_TRUE(kind == xany::String ? std::strcmp(chars, "text") == 0 : kel::is_uninit(chars));
        EXPECT_EQ(errors.take(), expected(kind == xany::String, "xrstring"));
        xextern foreign = value;
        EXPECT_EQ(foreign.value, kind == xany::Extern ? &place : kel::uninit_pointer());
        EXPECT_EQ(foreign.rtti, value.getrtti());
        EXPECT_EQ(errors.take(), expected(kind == xany::Extern, "xextern"));
        EXPECT_EQ(value.isobject(), kind == xany::Object);
        EXPECT_EQ(value.isenum(), kind == xany::Enum);
        EXPECT_EQ(value.isextern(), kind == xany::Extern);
    }
}

TEST(Value, AsserttypeTellsUnknownFromMismatch) {
    xany number(4);
    EXPECT_TRUE(number.asserttype(get_xrttiint()) == number);
    for (const xany &value : {xany(), xany(kel::nil_int)}) {
        EXPECT_TRUE(thrown_by<kelXUnknownType>([&] { value.asserttype(get_xrttiint()); })->getObject() ==
                    value);
        thrown_by<kelXUnknownType>([&] { value.gettypename(); });
    }
    auto mismatch = thrown_by<kelXTypeMismatch>([&] { number.asserttype(get_xrttireal()); });
    EXPECT_EQ(text(mismatch->getTypeName()), "real");
    EXPECT_TRUE(mismatch->getObject() == number);
    EXPECT_EQ(text(thrown_by<kelXTypeMismatch>([&] { number.asserttype(nullptr); })->getTypeName()),
              "(null)");
    EXPECT_EQ(text(xany("x").gettypename()), "string");
    EXPECT_EQ(text(xany(kel::detail::to_any(blue)).gettypename()), "value::Colour");
}

}  // namespace
