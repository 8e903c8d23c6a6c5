// The index of module files answers as a comparison with each of them does, in time that does not
// depend on how many there are.
#include "bpops/module_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "allocation.h"
#include "bpops/resolution.h"
#include "folder.h"

namespace morvik {
namespace {

// A breakpoint table of its own.
class Table {
  public:
    Table() {
        registry_init(registry.get(), path_cache_new());
        bp_table_init(table.get(), registry.get());
    }
    ~Table() {
        bp_table_reset(table.get(), registry.get());
        Py_CLEAR(table->file_key);
        path_cache_free(registry->path_cache);
        Py_CLEAR(registry->file_key);
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    PathCache* cache() const { return registry->path_cache; }
    void know(const std::string& name) { __tracer_resolve_bp_filenames(table.get(), name.c_str()); }
    std::string find(const std::string& name) {
        const char* const found = find_module_for_file(table.get(), name.c_str());
        return found != nullptr ? found : "(none)";
    }
    // The same by the definition.
    std::string compare_with_each(const std::string& name) {
        if (const HashEntry* const known = hash_find(&table->module_files, name.c_str())) {
            return static_cast<const char*>(hash_get_value(known));
        }
        HashSearch search;
        for (HashEntry* entry = hash_first(&table->module_files, &search); entry != nullptr;
             entry = hash_next(&search)) {
            const char* const module_file = static_cast<const char*>(hash_get_value(entry));
            if (same_file(cache(), name.c_str(), module_file) != 0) {
                return module_file;
            }
        }
        return "(none)";
    }

    std::unique_ptr<CodeNameRegistry> registry = std::make_unique<CodeNameRegistry>();
    std::unique_ptr<BreakpointTable> table = std::make_unique<BreakpointTable>();
};

// Spellings of the files of a folder, and of files that are none.
std::vector<std::string> spellings(const Folder& folder, std::mt19937* random) {
    namespace fs = std::filesystem;
    const auto any_of = [random](const std::vector<std::string>& items) {
        return items[(*random)() % items.size()];
    };
    const std::vector<std::string> folders = {"a", "A", "b", "b/deep"};
    const std::vector<std::string> names = {"x.py", "X.py", "x.pyc", "x.pyo", "Y.PY",
                                            "y.py", "<x>",  "z",     ".pyc"};
    for (const std::string& name : folders) {
        fs::create_directories(folder.path(name));
    }
    std::error_code ignored;
    fs::create_directory_symlink(folder.path("a"), folder.path("to_a"), ignored);
    std::set<std::string> there;
    for (int i = 0; i < 14; ++i) {
        const std::string name = folder.path(any_of(folders) + "/" + any_of(names));
        switch (there.empty() ? 0 : (*random)() % 4) {
            case 1:
                fs::create_symlink(any_of({there.begin(), there.end()}), name, ignored);
                break;
            case 2:
                fs::create_hard_link(any_of({there.begin(), there.end()}), name, ignored);
                break;
            default:
                std::ofstream(name) << name;
        }
        there.insert(name);
    }
    std::vector<std::string> result = {"<string>", "<cell 1>", "<Cell 1>", "", "/"};
    for (const std::string in : {"a", "A", "b", "b/deep", "to_a", "b/../a", "./a", "none"}) {
        for (const std::string& name : names) {
            const std::string inside = std::string(in).append("/").append(name);
            result.push_back(inside);
            result.push_back(folder.path() + "/" + inside);
        }
    }
    std::shuffle(result.begin(), result.end(), *random);
    return result;
}

TEST(ModuleIndexTest, AnswersAsAComparisonWithEachDoes) {
    int found = 0;
    for (unsigned seed = 0; seed < 60; ++seed) {
        std::mt19937 random(seed);
        const Folder folder;
        const std::vector<std::string> names = spellings(folder, &random);
        std::filesystem::current_path(folder.path());
        Table indexed;
        Table walked;
        for (int i = 0; i < 250; ++i) {
            const std::string& name = names[random() % names.size()];
            const std::string expected = walked.compare_with_each(name);
            ASSERT_EQ(indexed.find(name), expected) << name << ", seed " << seed;
            walked.find(name);  // keeps the synonym, too
            if (random() % 3 == 0) {
                indexed.know(name);
                walked.know(name);
            }
            found += expected != "(none)" && expected != name ? 1 : 0;
        }
        EXPECT_FALSE(indexed.table->module_index.incomplete);
    }
    EXPECT_GT(found, 1000);
}

TEST(ModuleIndexTest, FileThatWasReplacedIsFoundByWhatItIsNow) {
    const Folder folder;
    Table table;
    const std::string module_file = folder.file("m.py", "old");
    const std::string link = folder.path("link.py");
    std::filesystem::create_hard_link(module_file, link);
    table.know(module_file);
    EXPECT_EQ(table.find(link), module_file);
    std::filesystem::rename(folder.file("new.py", "new"), module_file);
    const std::string second = folder.path("second.py");
    const std::string third = folder.path("third.py");
    std::filesystem::create_hard_link(link, second);
    EXPECT_EQ(table.find(second), "(none)");  // and the module is looked at anew
    std::filesystem::create_hard_link(module_file, third);
    EXPECT_EQ(table.find(third), module_file);
}

TEST(ModuleIndexTest, ModuleThatAppearsOnDiskIsFoundAfterAFewSeconds) {
    const Folder folder;
    Table table;
    const std::string late = folder.path("late.py");
    table.know(late);
    EXPECT_EQ(table.find(folder.file("other.py")), "(none)");  // looks for the module, too
    folder.file("late.py");
    std::filesystem::create_symlink(late, folder.path("first.py"));
    std::filesystem::create_symlink(late, folder.path("second.py"));
    EXPECT_EQ(table.find(folder.path("first.py")), "(none)");
    const timespec more_than_the_interval = {kFailureSeconds, 100'000'000};
    nanosleep(&more_than_the_interval, nullptr);
    EXPECT_EQ(table.find(folder.path("second.py")), late);
}

TEST(ModuleIndexTest, WithoutMemoryForItNamesAreComparedWithEach) {
    const Folder folder;
    for (int successes = 0;; ++successes) {
        Table table;
        const std::string module_file = folder.file("m.py");
        table.know(folder.file("n.py"));
        {
            const FailingAllocation failing(successes);
            table.know(module_file);
            if (!FailingAllocation::happened()) {
                break;
            }
        }
        const std::string link = folder.path("./m.py");
        const std::string expected = table.compare_with_each(link);
        EXPECT_EQ(table.find(link), expected) << successes;
        ASSERT_LT(successes, 100);
    }
}

// CPU time of making so many modules known, and twice as many generated names.
double seconds_for(const Folder& folder, int count) {
    const std::string in = folder.path() + "/" + std::to_string(count);
    std::filesystem::create_directory(in);
    const auto file = [&in](int i) { return in + "/module" + std::to_string(i) + ".py"; };
    for (int i = 0; i < count; ++i) {
        std::ofstream(file(i)) << i;
    }
    Table table;
    const clock_t start = clock();
    for (int i = 0; i < count; ++i) {
        table.know("<cell " + std::to_string(i) + ">");
        table.know(file(i));
        table.know("template" + std::to_string(i));
    }
    return static_cast<double>(clock() - start) / CLOCKS_PER_SEC;
}

TEST(ModuleIndexTest, TakesTimeInProportionToTheNames) {
    constexpr int kFew = 2500;
    constexpr int kMany = 4 * kFew;
    const Folder folder;
    const double few = seconds_for(folder, kFew);
    const double many = seconds_for(folder, kMany);
    // In proportion to the square it would be sixteen times as much.
    EXPECT_LT(many, 9 * few);
}

}  // namespace
}  // namespace morvik
