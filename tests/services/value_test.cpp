// The variant value: kinds and markers, copies and their counts, conversions, comparison.
#include "observing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
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
        EXPECT_EQ(static_cast<xextern>(value).value, is_nil ? nullptr : kel::uninit_pointer());
        EXPECT_TRUE(is_nil ? kel::is_nil(value.getbool()) && kel::is_nil(value.getreal())
                           : kel::is_uninit(value.getbool()) && kel::is_uninit(value.getreal()));
        EXPECT_TRUE(value.isobject() && value.isenum() && value.isextern() && !value.getrtti());
        EXPECT_TRUE((value == kel::nil_text()) == is_nil && (value == kel::uninit_text()) != is_nil);
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
}

TEST(Value, KindsFollowTheConstructor) {
    EXPECT_EQ(xany(0).getkind(), xany::Int) << "a number, and no pointer";
    EXPECT_TRUE(xany(nullptr).isnil() && xany(xbool{1}) == xany(true));
    EXPECT_EQ(xany(7, xrtti_get_p_Colour()).getkind(), xany::Enum);
    EXPECT_EQ(xany(1e126).getkind(), xany::Real) << "beside a marker";
    EXPECT_EQ(xany(std::nan("")).getkind(), xany::Real);
    static_assert(!std::is_convertible_v<void *, xany> && !std::is_convertible_v<int *, xany>);
    auto wrong = thrown_by<kelXNotEnumType>([] { xany(1, get_xrttiint()); });
    EXPECT_EQ(text(wrong->getTypeName()), "int");
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
        const Model numbers[] = {{}, nullptr, number, number > 0, double(number), Colour(number)};
        const Model others[] = {std::string(chosen, 'x'), object, place};
        const std::size_t which = random() % 9;
        return which < 6 ? numbers[which] : others[which - 6];
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
        if (values[to] == values[from]) {
            ASSERT_EQ(values[to].hash(), values[from].hash());
        }
        for (auto &object : objects)
            ASSERT_EQ(xrcgetcount(object), 1 + std::ranges::count_if(models, [&](const Model &model) {
                                               auto *held = std::get_if<xobject *>(&model);
                                               return held && *held == object.get();
                                           }));
        ASSERT_EQ(Foreign::living, std::ranges::count(models, xany::Extern, &Model::index));
    }
}

TEST(Value, EqualityIsByKindAndValue) {
    const xany five(5), text("text"), nil(kel::nil_int), uninit;
    EXPECT_FALSE(five == 5.0 || five == "5" || five == xstring("5") || uninit == xstring() || uninit == 0);
    EXPECT_FALSE(text == static_cast<const char *>(nullptr) || xany(std::nan("")) == xany(std::nan("")));
    EXPECT_TRUE(xany(0.0) == xany(-0.0) && xany(0.0).hash() == xany(-0.0).hash() && xany(5U) == five);
    EXPECT_TRUE(text == xstring("text") && xstring("text") == text && nil == xstring() && nil == nullptr);
    // A counted object that nobody holds yet would not survive a value of its own.
    std::unique_ptr<xobject> fresh(new kelXArgs);
    EXPECT_FALSE(five == fresh.get() || nil == fresh.get());
    EXPECT_EQ(xrcgetcount(fresh.get()), 0);
    xauto<xobject> held;
    EXPECT_TRUE(xany(&held) == &held && uninit == kel::uninit_object() && kel::uninit_object() == uninit);
}

TEST(Value, WhatItIsGivenIsNeitherLostNorHeldTwice) {
    internal_errors errors;
    Owned owned;
    int place = 0;
    {
        xany held(kel::construct<Counted>()), uncounted(&owned), copy(uncounted), text(xstring("shared"));
        auto *fresh = kel::construct<Counted>();
        held = fresh;
        EXPECT_EQ(errors.take(), "Can not reuse xany. (services/xobject)");
        EXPECT_EQ(xrcgetcount(fresh), 0) << "neither taken up nor lost";
        xrcrelease(fresh);
        EXPECT_EQ(Counted::living, 1);
        EXPECT_TRUE(held.getrtti() == xrtti_get_p_Counted() && xrcgetcount(&owned) == -1);
        EXPECT_EQ(static_cast<xrstring>(xany(text)), static_cast<xrstring>(text)) << "copies share a text";
        // What is no value needs no descriptor.
        EXPECT_TRUE(xany(nullptr, new Foreign).isnil() &&
                    xany(kel::uninit_pointer(), new Foreign).isuninit());
        EXPECT_EQ(Foreign::living, 0);
        xany rigid(&place, new Foreign(false)), target("kept");
        thrown_by<kelXCannotCloneRTTI>([&] { target = rigid; });
        EXPECT_TRUE(target == "kept");
        thrown_by<kelXCannotCloneRTTI>([&] { xany failed(rigid); });
    }
    EXPECT_EQ(Foreign::living + Counted::living, 0);
}

TEST(Value, AWrongConversionIsReportedAndGivesUninit) {
    internal_errors errors;
    Owned owned;
    int place = 0;
    const xany number(1, xrtti_get_p_Colour()), extern_value(&place, new Foreign);
    const xany values[] = {1, true, 1.5, "text", number, &owned, extern_value};
    for (const xany &value : values) {
        const xany::Kind kind = value.getkind();
        const bool counts = kind == xany::Int || kind == xany::Enum;
        const auto expect_report = [&](bool fits, const std::string &target) {
            EXPECT_EQ(errors.take(),
                      fits ? "" : "Can not convert xany to " + target + ". (services/xobject)");
        };
        EXPECT_EQ(static_cast<int>(value), counts ? 1 : kel::uninit_int);
        expect_report(counts, "xint");
        EXPECT_EQ(static_cast<xobject *>(value), kind == xany::Object ? &owned : kel::uninit_object());
        expect_report(kind == xany::Object, "xobject");
        const xrstring chars = value;
        EXPECT_TRUE(kind == xany::String ? std::strcmp(chars, "text") == 0 : kel::is_uninit(chars));
        expect_report(kind == xany::String, "xrstring");
        const xextern foreign = value;
        EXPECT_EQ(foreign.value, kind == xany::Extern ? &place : kel::uninit_pointer());
        EXPECT_EQ(foreign.rtti, value.getrtti());
        expect_report(kind == xany::Extern, "xextern");
        EXPECT_TRUE(value.isobject() == (kind == xany::Object) && value.isenum() == (kind == xany::Enum) &&
                    value.isextern() == (kind == xany::Extern));
    }
}

TEST(Value, AsserttypeTellsUnknownFromMismatch) {
    const xany four(4), nothing;
    EXPECT_TRUE(four.asserttype(get_xrttiint()) == four);
    auto unknown = thrown_by<kelXUnknownType>([&] { nothing.asserttype(get_xrttiint()); });
    EXPECT_TRUE(unknown->getObject() == nothing);
    thrown_by<kelXUnknownType>([&] { xany(kel::nil_int).gettypename(); });
    for (brtti *other : {static_cast<brtti *>(get_xrttireal()), static_cast<brtti *>(nullptr)}) {
        auto mismatch = thrown_by<kelXTypeMismatch>([&] { four.asserttype(other); });
        EXPECT_EQ(text(mismatch->getTypeName()), other ? "real" : "(null)");
        EXPECT_TRUE(mismatch->getObject() == four);
    }
    EXPECT_EQ(text(xany(kel::detail::to_any(blue)).gettypename()), "test::Colour");
}

}  // namespace
