#include "exceptops/ignored_locations.h"

#include <string>

#include "python_fixture.h"

namespace morvik {
namespace {

class IgnoredLocationsTest : public PythonTest {
  protected:
    void SetUp() override {
        PythonTest::SetUp();
        cache_ = path_cache_new();
        exception_locs_init(&table_);
    }
    void TearDown() override {
        exception_locs_clear(&table_);
        path_cache_free(cache_);
        PythonTest::TearDown();
    }

    IgnoredLocation* add(const char* file, const char* line) {
        return exception_loc_add(&table_, cache_, file, eval(line).get());
    }

    PathCache* cache_ = nullptr;
    IgnoredLocations table_ = {};
};

TEST_F(IgnoredLocationsTest, RecordThatIsThereIsAnswered) {
    IgnoredLocation* const first = add("a.py", "3");
    EXPECT_EQ(add("a.py", "3"), first);
    EXPECT_EQ(add("a.py", "(1, 2)"), first);
    EXPECT_EQ(first->next, nullptr);
    EXPECT_EQ(exception_loc_find(&table_, cache_, "a.py", eval("3").get()), first);
}

TEST_F(IgnoredLocationsTest, RecordsOfOneLineFormAListNewestFirst) {
    IgnoredLocation* const first = add("a.py", "3");
    IgnoredLocation* const second = add("b.py", "3");
    EXPECT_EQ(second->next, first);
    EXPECT_EQ(table_.num_entries, 1);
    add("a.py", "4");
    EXPECT_EQ(table_.num_entries, 2);
}

TEST_F(IgnoredLocationsTest, LastRecordOfALineTakesTheEntryAlong) {
    add("a.py", "3");
    add("b.py", "3");
    exception_loc_remove(&table_, "a.py", eval("3").get());
    EXPECT_EQ(table_.num_entries, 1);
    exception_loc_remove(&table_, "b.py", eval("3").get());
    EXPECT_EQ(table_.num_entries, 0);
    exception_loc_remove(&table_, "b.py", eval("3").get());
    EXPECT_EQ(table_.num_entries, 0);
}

TEST_F(IgnoredLocationsTest, ClearedTableCanBeUsedAgain) {
    for (int i = 0; i < 100; ++i) {
        add("a.py", std::to_string(i).c_str());
    }
    EXPECT_EQ(table_.num_entries, 100);
    exception_locs_clear(&table_);
    EXPECT_EQ(table_.num_entries, 0);
    EXPECT_NE(add("a.py", "3"), nullptr);
    EXPECT_EQ(table_.num_entries, 1);
}

TEST_F(IgnoredLocationsTest, KeyOfALineIsItsNumber) {
    const auto key = [this](const char* line) { return exception_line_key(eval(line).get()); };
    EXPECT_EQ(key("12"), 12);
    EXPECT_EQ(key("-12"), -12);
    EXPECT_EQ(key("(10, 2)"), 12);
    EXPECT_EQ(key("(10, 2, 'more')"), 12);
    EXPECT_EQ(key("(2147483647, 1)"), INT32_MIN);
    EXPECT_EQ(key("(-2147483648, -1)"), INT32_MAX);
}

TEST_F(IgnoredLocationsTest, KeyOfWhatIsNoNumberIsAnError) {
    for (const char* line : {"None", "'12'", "(1, None)", "(None, 1)"}) {
        EXPECT_EQ(exception_line_key(eval(line).get()), -1) << line;
        EXPECT_EQ(take_error().substr(0, 9), "TypeError") << line;
    }
    for (const char* line : {"()", "(1,)"}) {
        EXPECT_EQ(exception_line_key(eval(line).get()), -1) << line;
        EXPECT_EQ(take_error(), "IndexError: tuple index out of range") << line;
    }
}

}  // namespace
}  // namespace morvik
