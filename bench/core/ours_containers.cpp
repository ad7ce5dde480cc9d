// Our sequences, dictionaries and the printer.
#include <kelstdmt/declare.h>
#include <kelstdmt/iolib.h>

#include <memory>

#include "loops.h"

namespace bench {

KEL_DECLARE_STRUCT(BenchItem)
class BenchItem : public xobject {
    KEL_CLASS(BenchItem, xobject)
public:
    int Serial = 0, Count = 0, Stock = 0, Shelf = 0;
    double Weight = 0, Price = 0, Rate = 0;
    xstring Title, Colour, Maker;
};
KEL_SEQUENCE(BenchItems, xrchandle<BenchItem>)
KEL_SEQUENCE(BenchGroups, xrchandle<BenchItems>)

KEL_DECLARE_STRUCT(BenchTree)
class BenchTree : public xobject {
    KEL_CLASS(BenchTree, xobject)
public:
    xrchandle<BenchGroups> Groups = BenchGroups::create();
};

KEL_DEFINE_STRUCT(BenchItem, "bench::Item", kel::counted, kel::field<&BenchItem::Serial>("Serial"),
                  kel::field<&BenchItem::Count>("Count"), kel::field<&BenchItem::Stock>("Stock"),
                  kel::field<&BenchItem::Shelf>("Shelf"), kel::field<&BenchItem::Weight>("Weight"),
                  kel::field<&BenchItem::Price>("Price"), kel::field<&BenchItem::Rate>("Rate"),
                  kel::field<&BenchItem::Title>("Title"), kel::field<&BenchItem::Colour>("Colour"),
                  kel::field<&BenchItem::Maker>("Maker"))
KEL_DEFINE_SEQUENCE(BenchItems, "bench::Items", kel::counted)
KEL_DEFINE_SEQUENCE(BenchGroups, "bench::Groups", kel::counted)
KEL_DEFINE_STRUCT(BenchTree, "bench::Tree", kel::counted, kel::field<&BenchTree::Groups>("Groups"))

namespace {

template <class T>
class List : public kel::sequence_of<T> {
public:
    const T &at(int index) const { return (*this)[index]; }
};

class Table {
public:
    using Keys = PointerKeys;

    void set(const char *key, int value) { m_table.set(key, value); }
    bool find(const char *key, int &value) { return m_table.find(key, value); }
    bool remove(const char *key) { return m_table.remove(key); }
    bool empty() { return m_table.getcount() == 0; }

private:
    kel::dictionary_of<int> m_table;
};

xrchandle<BenchTree> make_tree() {
    xrchandle<BenchTree> made(kel::construct<BenchTree>());
    for (int g = 0; g < tree::groups; ++g) {
        xrchandle<BenchItems> items(BenchItems::create());
        for (int i = 0; i < tree::items; ++i) {
            xrchandle<BenchItem> item(kel::construct<BenchItem>());
            item->Serial = tree::integer(g, i, 0);
            item->Count = tree::integer(g, i, 1);
            item->Stock = tree::integer(g, i, 2);
            item->Shelf = tree::integer(g, i, 3);
            item->Weight = tree::real(g, i, 4);
            item->Price = tree::real(g, i, 5);
            item->Rate = tree::real(g, i, 6);
            item->Title = tree::text(g, i, 7).c_str();
            item->Colour = tree::text(g, i, 8).c_str();
            item->Maker = tree::text(g, i, 9).c_str();
            items->append(std::move(item));
        }
        made->Groups->append(std::move(items));
    }
    return made;
}

}  // namespace

void add_ours_containers(Suite &suite) {
    const auto ours = Library::Ours;
    suite.add("sequence/ints", ours, "sequence", append_and_read_ints<List<int>>);
    suite.add("sequence/strings", ours, "sequence", [](benchmark::State &state) {
        std::vector<xstring> texts;
        for (const std::string &text : different_texts())
            texts.emplace_back(text.c_str());
        append_and_read<List<xstring>>(state, texts,
                                       [](const xstring &text) { return std::string_view(text)[0]; });
    });
    add_dictionaries<Table>(suite, ours, "dictionary");
    suite.add("print/tree", ours, "print", [](benchmark::State &state) {
        xrchandle<BenchTree> tree = make_tree();
        print_tree(
            state,
            [&] {
                std::unique_ptr<ioStringStream> text(ioStringStream::Create());
                tree->print(text.get());
                return text->getStr();
            },
            [](const xstring &text) { return std::string(text.Str()); });
    });
}

}  // namespace bench
