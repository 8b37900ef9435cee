// The name tables' lifetime as loading and unloading the library shows it:
// built in their fixed order, destroyed in the reverse one. This program
// does not link the library: it loads it with dlopen, unloads it with
// dlclose, and interposes __cxa_atexit, through which every table's
// destruction is registered right after the table is built.
#include <dlfcn.h>

#include <algorithm>
#include <cstddef>
#include <deque>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DBG_Output.h"

namespace {

// A table, its exported symbol, and where its first text lies within its
// first element.
struct Table {
    char const* name;
    char const* symbol;
    std::size_t textOffset;
};

// The string's ABI tag that the symbol of an array of std::string carries
// in the cxx11 ABI; the older ABI has none.
#if _GLIBCXX_USE_CXX11_ABI
#define STRING_ABI_TAG "B5cxx11"
#else
#define STRING_ABI_TAG ""
#endif

// The order the library builds them in.
Table const tables[] = {
    {"codecToStr", "_ZN10DBG_Output10codecToStr" STRING_ABI_TAG "E", 0},
    {"directionToStr", "_ZN10DBG_Output14directionToStr" STRING_ABI_TAG "E", 0},
    {"addressPlanToStr", "_ZN10DBG_Output16addressPlanToStr" STRING_ABI_TAG "E", 0},
    {"addressPresentationToStr", "_ZN10DBG_Output24addressPresentationToStr" STRING_ABI_TAG "E", 0},
    {"addressTypeToStr", "_ZN10DBG_Output16addressTypeToStr" STRING_ABI_TAG "E", 0},
    {"sinToStr", "_ZN10DBG_Output8sinToStr" STRING_ABI_TAG "E", 0},
    {"ulawToStr", "_ZN10DBG_Output9ulawToStr" STRING_ABI_TAG "E", 0},
    {"hangupSourceToStr", "_ZN10DBG_Output17hangupSourceToStr" STRING_ABI_TAG "E", 0},
    {"statusToStr", "_ZN10DBG_Output11statusToStr" STRING_ABI_TAG "E", 0},
    {"causeToStr", "_ZN10DBG_Output10causeToStrE", offsetof(DBG_CauseStr, text)},
    {"framingToStr", "_ZN10DBG_Output12framingToStrE", offsetof(DBG_FramingStr, text)},
    {"opeTypToStr", "_ZN10DBG_Output11opeTypToStr" STRING_ABI_TAG "E", 0},
    {"reasonToStr", "_ZN10DBG_Output11reasonToStr" STRING_ABI_TAG "E", 0},
    {"uagentToStr", "_ZN10DBG_Output11uagentToStr" STRING_ABI_TAG "E", 0},
};
constexpr std::size_t tableCount = sizeof tables / sizeof tables[0];

// While the library loads: each table's first text, found from the load
// address and the offsets a first load measured; whether it is built yet.
struct Watch {
    bool on = false;
    std::ptrdiff_t textOffsets[tableCount] = {};
    bool built[tableCount] = {};
    std::vector<std::string> buildOrder;
    std::vector<std::string> destructionOrder;
};

Watch watch;

// A registered destruction, and the table it belongs to.
struct Finaliser {
    void (*function)(void*);
    void* argument;
    std::string table;
};

std::deque<Finaliser> finalisers;  // stable addresses for the trampolines

extern "C" void runFinaliser(void* entry)
{
    auto* const finaliser = static_cast<Finaliser*>(entry);
    watch.destructionOrder.push_back(finaliser->table);
    finaliser->function(finaliser->argument);
}

// A zero-initialised string object, not built yet, is all zero bytes; a
// built one with a text is not.
bool isBuilt(char const* text)
{
    for (std::size_t i = 0; i < sizeof(std::string); ++i) {
        if (text[i] != 0)
            return true;
    }
    return false;
}

// The tables built since the last look, given the library's load address.
std::vector<std::size_t> newlyBuilt(char const* base)
{
    std::vector<std::size_t> found;
    for (std::size_t i = 0; i < tableCount; ++i) {
        if (!watch.built[i] && isBuilt(base + watch.textOffsets[i])) {
            watch.built[i] = true;
            found.push_back(i);
        }
    }
    return found;
}

}  // namespace

extern "C" int __cxa_atexit(void (*function)(void*), void* argument, void* dsoHandle) noexcept
{
    using Register = int (*)(void (*)(void*), void*, void*);
    static Register const next = reinterpret_cast<Register>(dlsym(RTLD_NEXT, "__cxa_atexit"));
    Dl_info library;
    if (!watch.on || dladdr(dsoHandle, &library) == 0 || std::string(library.dli_fname) != DBG_LIBRARY_PATH)
        return next(function, argument, dsoHandle);
    std::vector<std::size_t> const built = newlyBuilt(static_cast<char const*>(library.dli_fbase));
    if (built.empty())
        return next(function, argument, dsoHandle);
    std::string table;
    for (std::size_t index : built) {
        table += (table.empty() ? "" : "+") + std::string(tables[index].name);
        watch.buildOrder.push_back(tables[index].name);
    }
    finalisers.push_back({function, argument, table});
    return next(runFinaliser, &finalisers.back(), dsoHandle);
}

namespace {

std::vector<std::string> namesInOrder()
{
    std::vector<std::string> names;
    for (Table const& table : tables)
        names.push_back(table.name);
    return names;
}

TEST(NameTableLifetime, BuiltInTheirOrderAtLoadAndDestroyedInReverseAtUnload)
{
    // A first load measures where the tables lie within the library.
    void* library = dlopen(DBG_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    Dl_info where;
    for (std::size_t i = 0; i < tableCount; ++i) {
        void* const table = dlsym(library, tables[i].symbol);
        ASSERT_NE(table, nullptr) << tables[i].symbol;
        ASSERT_NE(dladdr(table, &where), 0);
        watch.textOffsets[i] = static_cast<char*>(table) + tables[i].textOffset - static_cast<char*>(where.dli_fbase);
    }
    ASSERT_EQ(dlclose(library), 0);
    ASSERT_EQ(dlopen(DBG_LIBRARY_PATH, RTLD_NOW | RTLD_NOLOAD), nullptr) << "the library stays loaded";

    watch.on = true;
    library = dlopen(DBG_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    EXPECT_EQ(watch.buildOrder, namesInOrder());
    EXPECT_EQ(finalisers.size(), tableCount) << "one destruction registered per table, right after it is built";
    EXPECT_TRUE(watch.destructionOrder.empty());
    ASSERT_EQ(dlclose(library), 0);
    watch.on = false;
    std::vector<std::string> reversed = namesInOrder();
    std::reverse(reversed.begin(), reversed.end());
    EXPECT_EQ(watch.destructionOrder, reversed);
}

}  // namespace
