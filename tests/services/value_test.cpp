// The variant value: kinds and markers, copies and their counts, conversions, comparison.
#include "observing.h"

#include <algorithm>
#include <cmath>
#include <random>
#include <variant>

#include "subjects.h"

namespace {

void expect_marker(bool is_nil, std::initializer_list<xany> values) {
    for (const xany &value : values) {
        SCOPED_TRACE(testing::Message() << "nil: " << is_nil << ", value " << &value - values.begin());
        EXPECT_EQ(value.getkind(), is_nil ? xany::Nil : xany::Uninit);
        EXPECT_EQ(static_cast<int>(value), is_nil ? kel::nil_int : kel::uninit_int);
        EXPECT_EQ(static_cast<xobject *>(value), is_nil ? nullptr : kel::uninit_object());
        EXPECT_EQ(static_cast<xrstring>(value), is_nil ? kel::nil_text() : kel::uninit_text());
        EXPECT_EQ(value.getreal(), is_nil ? kel::nil_real : kel::uninit_real);
        EXPECT_TRUE(!value.getrtti() && (value == kel::nil_text()) == is_nil);
    }
}

TEST(Value, AMarkerNeverStaysUnderAValueKind) {
    brtti *colour = xrtti_get_p_Colour();
    const xany no_colour(kel::uninit_int, colour), beyond(3, colour), nowhere(nullptr, nullptr);
    expect_marker(false, {{}, kel::uninit_int, kel::uninit_bool, kel::uninit_real, kel::uninit_text()});
    expect_marker(false, {kel::uninit_object(), no_colour, {kel::uninit_pointer(), nullptr}});
    expect_marker(true, {kel::nil_int, kel::nil_bool, kel::nil_real, kel::nil_text(), xstring(), beyond});
    expect_marker(true, {static_cast<const char *>(nullptr), static_cast<xobject *>(nullptr), nowhere});
    expect_marker(true, {kel::detail::to_any(Colour(3))});
    EXPECT_EQ(xany(0).getkind(), xany::Int) << "a number, and no pointer";
    EXPECT_TRUE(xany(1e126).getkind() == xany::Real && xany(std::nan("")).getkind() == xany::Real);
    thrown_by<kelXNotEnumType>([] { xany(1, get_xrttiint()); });
}

// Values beside a std::variant that does the same, except that what holds an object or an extern refuses to
// be assigned to. Nothing is lost or held twice on the way.
using Model =
    std::variant<std::monostate, std::nullptr_t, int, bool, double, std::string, Colour, xobject *, void *>;

xany value_of(const Model &model) {
    struct {
        xany operator()(std::monostate) { return {}; }
        xany operator()(std::nullptr_t) { return kel::nil_int; }
        xany operator()(int v) { return v; }
        xany operator()(bool v) { return v; }
        xany operator()(double v) { return v; }
        xany operator()(const std::string &v) { return v.c_str(); }
        xany operator()(Colour v) { return kel::detail::to_any(v); }
        xany operator()(xobject *v) { return v; }
        xany operator()(void *v) { return {v, new Foreign}; }
    } make;
    return std::visit(make, model);
}

bool matches(const xany &value, const Model &model) {
    if (value.getkind() != static_cast<xany::Kind>(model.index())) return false;
    auto *text = std::get_if<std::string>(&model);
    return text ? *text == static_cast<xrstring>(value) && *text == kel::view(value.getstring())
                : value == value_of(model);
}

TEST(Value, CopiesMovesAndComparesLikeAVariant) {
    std::mt19937 random(7);
    internal_errors errors;
    xrchandle<Counted> objects[] = {kel::construct<Counted>(), kel::construct<Counted>()};
    int places[2];
    auto any_model = [&]() -> Model {
        const std::size_t chosen = random() % 2;
        const int number = static_cast<int>(random() % 3);
        xobject *const object = objects[chosen];
        void *const place = &places[chosen];
        const Model all[] = {
            {},     nullptr, number, number > 0, double(number), Colour(number), std::string(chosen, 'x'),
            object, place};
        return all[random() % 9];
    };
    std::vector<xany> values(8);
    std::vector<Model> models(8);
    for (int step = 0; step < 20000; ++step) {
        const std::size_t to = random() % 8, from = random() % 8;
        const bool refuses = models[to].index() >= xany::Object;
        bool assigned = true;
        switch (random() % 4) {
            case 0: {
                const Model fresh = any_model();
                values[to] = value_of(fresh);
                if (!refuses) models[to] = fresh;
                break;
            }
            case 1:
                values[to] = values[from];
                if (!refuses) models[to] = models[from];
                break;
            case 2:
                values[to] = std::move(values[from]);
                if (!refuses) models[to] = models[from];
                if (!refuses && to != from) models[from] = Model();
                break;
            default: {
                assigned = false;
                xany copy(values[from]), moved(std::move(values[to]));
                ASSERT_TRUE(values[to].isuninit() && matches(copy, models[from]));
                if (random() % 2)
                    models[to] = Model();
                else
                    values[to] = std::move(moved);
            }
        }
        ASSERT_EQ(errors.take(), assigned && refuses ? "Can not reuse xany. (services/xobject)" : "") << step;
        ASSERT_TRUE(matches(values[to], models[to]) && matches(values[from], models[from])) << step;
        ASSERT_EQ(values[to] == values[from], models[to] == models[from]) << step;
        ASSERT_TRUE(!(values[to] == values[from]) || values[to].hash() == values[from].hash()) << step;
        for (auto &object : objects)
            ASSERT_EQ(xrcgetcount(object), 1 + std::ranges::count_if(models, [&](const Model &model) {
                                               auto *held = std::get_if<xobject *>(&model);
                                               return held && *held == object.get();
                                           }));
        ASSERT_EQ(Foreign::living, std::ranges::count(models, xany::Extern, &Model::index));
    }
}

TEST(Value, EqualityIsByKindAndValue) {
    const xany five(5), nil(kel::nil_int);
    EXPECT_FALSE(five == 5.0 || five == "5" || xany() == xstring() ||
                 xany(std::nan("")) == xany(std::nan("")));
    EXPECT_TRUE(xany(nullptr, new Foreign).isnil() && Foreign::living == 0) << "nothing needs no descriptor";
    EXPECT_TRUE(xany(0.0) == xany(-0.0) && xany(0.0).hash() == xany(-0.0).hash());
    EXPECT_TRUE(xstring("text") == xany("text") && nil == xstring() && nil == nullptr);
    // A counted object that nobody holds yet would not survive a value of its own.
    xobject *fresh = kel::construct<Counted>();
    EXPECT_FALSE(five == fresh || nil == fresh);
    xany held(kel::construct<Counted>());
    internal_errors errors;
    held = fresh;
    EXPECT_EQ(errors.take(), "Can not reuse xany. (services/xobject)");
    EXPECT_EQ(xrcgetcount(fresh), 0) << "neither taken up nor lost";
    xrcrelease(fresh);
}

TEST(Value, AWrongConversionIsReportedAndGivesUninit) {
    internal_errors errors;
    Owned owned;
    int place = 0;
    const xany enumerator(1, xrtti_get_p_Colour()), foreign(&place, new Foreign);
    const xany values[] = {1, true, 1.5, "text", enumerator, &owned, foreign};
    for (const xany &value : values) {
        const xany::Kind kind = value.getkind();
        std::string expected;
        const auto fits = [&](bool does, const std::string &target) {
            expected += does ? "" : "Can not convert xany to " + target + ". (services/xobject); ";
            return does;
        };
        EXPECT_EQ(static_cast<int>(value),
                  fits(kind == xany::Int || kind == xany::Enum, "xint") ? 1 : kel::uninit_int);
        EXPECT_EQ(value.getbool(), fits(kind == xany::Bool, "xbool") ? xbool(true) : kel::uninit_bool);
        EXPECT_EQ(value.getreal(), fits(kind == xany::Real, "xreal") ? 1.5 : kel::uninit_real);
        EXPECT_EQ(static_cast<xobject *>(value),
                  fits(kind == xany::Object, "xobject") ? &owned : kel::uninit_object());
        EXPECT_EQ(kel::is_uninit(static_cast<xrstring>(value)), !fits(kind == xany::String, "xrstring"));
        EXPECT_EQ(text(value.getstring()), fits(kind == xany::String, "xrstring") ? "text" : "(null)");
        const xextern got = value;
        EXPECT_EQ(got.value, fits(kind == xany::Extern, "xextern") ? &place : kel::uninit_pointer());
        EXPECT_EQ(got.rtti, value.getrtti());
        EXPECT_EQ(errors.take() + "; ", expected);
    }
    for (const bool is_nil : {true, false}) {  // which fit everywhere, as markers
        const xany none = is_nil ? xany(kel::nil_int) : xany();
        EXPECT_EQ(none.getbool(), is_nil ? kel::nil_bool : kel::uninit_bool);
        EXPECT_EQ(none.getreal(), is_nil ? kel::nil_real : kel::uninit_real);
        const xextern got = none;
        EXPECT_TRUE(got.value == (is_nil ? nullptr : kel::uninit_pointer()) && !got.rtti);
        EXPECT_TRUE(none.getstring().IsNull());
        EXPECT_TRUE(thrown_by<kelXUnknownType>([&] { none.gettypename(); })->getObject() == none);
    }
    EXPECT_EQ(errors.take(), "");
}

TEST(Value, AsserttypeTellsUnknownFromMismatch) {
    const xany four(4), nothing;
    EXPECT_TRUE(four.asserttype(get_xrttiint()) == four);
    thrown_by<kelXUnknownType>([&] { nothing.asserttype(get_xrttiint()); });
    auto mismatch = thrown_by<kelXTypeMismatch>([&] { four.asserttype(get_xrttireal()); });
    EXPECT_TRUE(text(mismatch->getTypeName()) == "real" && mismatch->getObject() == four);
}

}  // namespace
