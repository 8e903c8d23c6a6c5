#include "pathops.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>

#include "allocation.h"
#include "embedding.h"
#include "folder.h"

namespace morvik {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class PathCacheTest : public testing::Test {
  protected:
    PathCacheTest() : cache(path_cache_new()) {}
    ~PathCacheTest() override { path_cache_free(cache); }

    std::string full(const std::string& path) {
        const char* const name = full_path(cache, path.c_str());
        return name != nullptr ? name : "(none)";
    }

    int same(const std::string& a, const std::string& b) {
        return same_file(cache, a.c_str(), b.c_str());
    }

    // When looking a path up failed, 0 when it is not known to have.
    int64_t failed(const std::string& path) {
        HashEntry* const entry = hash_find(&cache->failed, path.c_str());
        return entry != nullptr ? reinterpret_cast<intptr_t>(hash_get_value(entry)) : 0;
    }

    void set_failed(const std::string& path, int64_t seconds_from_now) {
        int is_new = 0;
        hash_set_value(hash_create(&cache->failed, path.c_str(), &is_new),
                       reinterpret_cast<void*>(time(nullptr) + seconds_from_now));
    }

    Folder folder;
    PathCache* cache;
};

std::string stripped(std::string path) {
    strip_compiled_suffix(path.data());
    return path.c_str();
}

TEST(StripCompiledSuffixTest, CutsTheLastLetterOfTheTwoSuffixes) {
    EXPECT_EQ(stripped("x.pyc"), "x.py");
    EXPECT_EQ(stripped("x.pyo"), "x.py");
    EXPECT_EQ(stripped("/a/b.c/x.PYC"), "/a/b.c/x.PY");
    EXPECT_EQ(stripped("x.pYo"), "x.pY");
    EXPECT_EQ(stripped(".pyc"), ".py");
    EXPECT_EQ(stripped("x.pyc.pyc"), "x.pyc.py");
}

TEST(StripCompiledSuffixTest, LeavesEverythingElse) {
    for (const char* path : {"", "c", "pyc", "x.py", "x.pyd", "xpyc", "x.pyc ", "x.pycc", "py.c"}) {
        EXPECT_EQ(stripped(path), path);
    }
}

TEST(SameButCompiledSuffixTest, AnswersOneForEqualNamesInAnyCase) {
    EXPECT_EQ(same_but_compiled_suffix("abc", "abc"), 1);
    EXPECT_EQ(same_but_compiled_suffix("/x/ABC.py", "/X/abc.PY"), 1);
}

TEST(SameButCompiledSuffixTest, AnswersOneForOneMoreLetterOfTheTwo) {
    for (const char* longer : {"abcc", "abco", "abcC", "abcO"}) {
        EXPECT_EQ(same_but_compiled_suffix("abc", longer), 1);
        EXPECT_EQ(same_but_compiled_suffix(longer, "ABC"), 1);
    }
    EXPECT_EQ(same_but_compiled_suffix("abc", "abcd"), 0);
    EXPECT_EQ(same_but_compiled_suffix("abc", "abc."), 0);
}

TEST(SameButCompiledSuffixTest, LooksAtNothingBehindTheFirstExtraLetter) {
    EXPECT_EQ(same_but_compiled_suffix("abc", "abcoXYZ"), 1);
    EXPECT_EQ(same_but_compiled_suffix("abccccc", "abc"), 1);
    EXPECT_EQ(same_but_compiled_suffix("abc", "abcXo"), 0);
}

TEST(SameButCompiledSuffixTest, AnswersZeroForShortNamesOtherNamesAndNone) {
    EXPECT_EQ(same_but_compiled_suffix("ab", "ab"), 0);
    EXPECT_EQ(same_but_compiled_suffix("ab", "abc"), 0);
    EXPECT_EQ(same_but_compiled_suffix("", ""), 0);
    EXPECT_EQ(same_but_compiled_suffix("abc", "abx"), 0);
    EXPECT_EQ(same_but_compiled_suffix("xbc", "abcc"), 0);
    EXPECT_EQ(same_but_compiled_suffix(nullptr, "abc"), 0);
    EXPECT_EQ(same_but_compiled_suffix("abc", nullptr), 0);
    EXPECT_EQ(same_but_compiled_suffix(nullptr, nullptr), 0);
}

TEST(PseudoNameTest, BeginsAndEndsWithAnAngleBracket) {
    for (const char* path : {"<string>", "<>", "<a/b>"}) {
        EXPECT_TRUE(is_pseudo_name(path)) << path;
    }
    for (const char* path : {"", "<", ">", "<a", "a>", "<a>.py", " <a>"}) {
        EXPECT_FALSE(is_pseudo_name(path)) << path;
    }
}

TEST_F(PathCacheTest, SecondCacheSaysNothingOfThePlatform) {
    Diagnostics diagnostics(kLogFiles);
    path_cache_free(path_cache_new());
    EXPECT_THAT(diagnostics.take(), IsEmpty());
}

TEST_F(PathCacheTest, FullPathIsLoggedAndThenServedFromTheCache) {
    const std::string path = folder.file("a.py");
    const std::string given = folder.path() + "/./a.py";
    Diagnostics diagnostics(kLogFiles);
    const char* const first = full_path(cache, given.c_str());
    EXPECT_EQ(first, path);
    EXPECT_THAT(diagnostics.take(), ElementsAre("_win32_fullpath(path = " + given + ")\n",
                                                "full_path = " + path + "\n"));
    EXPECT_EQ(full_path(cache, given.c_str()), first);
    EXPECT_THAT(diagnostics.take(), ElementsAre("_win32_fullpath(path = " + given + ")\n",
                                                "Found hash for " + given + " -> " + path + "\n"));
}

TEST_F(PathCacheTest, FullPathIsKeptUnderTheNameAsGiven) {
    const std::string path = folder.file("a.py");
    EXPECT_EQ(full(folder.path() + "//a.py"), path);
    EXPECT_EQ(cache->full_names.num_entries, 1U);
    EXPECT_EQ(hash_find(&cache->full_names, path.c_str()), nullptr);
    EXPECT_EQ(full(path), path);
    EXPECT_EQ(cache->full_names.num_entries, 2U);
}

TEST_F(PathCacheTest, FullPathOutlivesChangesOfTheFileSystem) {
    std::filesystem::create_symlink(folder.file("a.py"), folder.path("link.py"));
    std::filesystem::current_path(folder.path());
    EXPECT_EQ(full("link.py"), folder.path("link.py"));
    std::filesystem::remove(folder.path("link.py"));
    std::filesystem::current_path("/");
    EXPECT_EQ(full("link.py"), folder.path("link.py"));
}

TEST_F(PathCacheTest, PseudoNameIsItsOwnFullPath) {
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(full("<string>"), "<string>");
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("_win32_fullpath(path = <string>)\n", "full_path = <string>\n"));
}

TEST_F(PathCacheTest, FailureToFindAFullPathIsNotRemembered) {
    std::filesystem::create_directory(folder.path("gone"));
    std::filesystem::current_path(folder.path("gone"));
    std::filesystem::remove(folder.path("gone"));
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(full("a.py"), "(none)");
    EXPECT_THAT(diagnostics.take(), ElementsAre("_win32_fullpath(path = a.py)\n"));
    std::filesystem::current_path(folder.path());
    EXPECT_EQ(full("a.py"), folder.path("a.py"));
}

TEST_F(PathCacheTest, NameTooLongHasNoFullPath) {
    EXPECT_EQ(full("/" + std::string(kMaxPath, 'x')), "(none)");
    EXPECT_EQ(full(std::string(kMaxPath, 'x')), "(none)");
    EXPECT_EQ(full("/" + std::string(kMaxPath - 2, 'x')), "/" + std::string(kMaxPath - 2, 'x'));
}

TEST_F(PathCacheTest, EqualNamesAreOneFileWithoutALookAtIt) {
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(same("/no/such.py", "/no/such.py"), 1);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE /no/such.py /no/such.py\n",
                            "%%%%%%%%%%% RETURNING TRUE!!!!!!!!!!!!!!!!!!!!!\n"));
    EXPECT_EQ(same("/no/such.py", "/NO/SUCH.PY"), 1);
    EXPECT_EQ(cache->short_names.num_entries, 0U);
    EXPECT_EQ(cache->failed.num_entries, 0U);
}

TEST_F(PathCacheTest, TwoNamesOfAFileAreOneFile) {
    const std::string path = folder.file("sub/a.py");
    const std::string other = folder.path("sub/../sub/a.py");
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(same(other, path), 1);
    const std::string length = std::to_string(path.size());
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE " + other + " " + path + "\n", "CHECK1 " + path + "\n",
                            "CHECK2 " + length + " " + path + "\n", "CHECK1 " + path + "\n",
                            "CHECK2 " + length + " " + path + "\n",
                            "Full names " + path + " " + path + "\n", "  returning 1\n"));
    EXPECT_EQ(same(path, other), 1);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE " + path + " " + other + "\n",
                            "Full names " + path + " " + path + "\n", "  returning 1\n"));
}

TEST_F(PathCacheTest, LinksToAFileAreThatFile) {
    const std::string path = folder.file("a.py");
    std::filesystem::create_symlink(path, folder.path("soft.py"));
    std::filesystem::create_hard_link(path, folder.path("hard.py"));
    std::filesystem::create_directory_symlink(folder.path(), folder.path("up"));
    for (const char* name : {"soft.py", "hard.py", "up/a.py", "up/soft.py", "up/up/hard.py"}) {
        EXPECT_EQ(same(folder.path(name), path), 1) << name;
        EXPECT_EQ(same(path, folder.path(name)), 1) << name;
    }
    EXPECT_EQ(same(folder.path("soft.py"), folder.path("hard.py")), 1);
}

TEST_F(PathCacheTest, LinkedFileThatWasReplacedIsAnother) {
    const std::string path = folder.file("a.py");
    const std::string linked = folder.path("hard.py");
    std::filesystem::create_hard_link(path, linked);
    EXPECT_EQ(same(path, linked), 1);
    std::filesystem::rename(folder.file("new.py"), path);
    EXPECT_EQ(same(path, linked), 0);
    std::filesystem::remove(linked);
    std::filesystem::create_hard_link(path, linked);
    EXPECT_EQ(same(path, linked), 0);
}

TEST_F(PathCacheTest, OtherFilesAreOthers) {
    const std::string path = folder.file("a.py");
    EXPECT_EQ(same(path, folder.file("b.py")), 0);
    EXPECT_EQ(same(path, folder.file("sub/a.py")), 0);
    EXPECT_EQ(same(path, folder.path()), 0);
    EXPECT_EQ(same(path, "<string>"), 0);
}

TEST_F(PathCacheTest, FilesWhoseNamesDifferInCaseAloneAreOthers) {
    const std::string lower = folder.file("a.py");
    const std::string upper = folder.file("A.py");
    EXPECT_EQ(same(lower, upper), 0);
    EXPECT_EQ(same(upper, lower), 0);
    EXPECT_EQ(same(lower, lower), 1);
    std::filesystem::remove(upper);
    EXPECT_EQ(same(lower, upper), 1);
}

TEST_F(PathCacheTest, CompiledFileIsItsSourceWhereBothExist) {
    const std::string source = folder.file("a.py");
    const std::string compiled = folder.path("a.pyc");
    EXPECT_EQ(same(compiled, source), 0);
    folder.file("b.py");
    folder.file("b.pyc");
    EXPECT_EQ(same(folder.path("b.pyc"), folder.path("b.py")), 1);
    EXPECT_EQ(same(folder.path("./b.py"), folder.path("./b.pyc")), 1);
    EXPECT_EQ(same(folder.path("b.pyc"), source), 0);
    folder.file("sub/b.pyc");
    EXPECT_EQ(same(folder.path("sub/b.pyc"), folder.path("b.py")), 0);
}

TEST_F(PathCacheTest, OptimisedFileIsNeverItsSource) {
    folder.file("a.py");
    folder.file("a.pyo");
    folder.file("a.pyc");
    EXPECT_EQ(same(folder.path("a.pyo"), folder.path("a.py")), 0);
    EXPECT_EQ(same(folder.path("a.pyo"), folder.path("a.pyc")), 0);
}

TEST_F(PathCacheTest, KnownFileIsRememberedWhenItIsGone) {
    const std::string path = folder.file("a.py");
    const std::string other = folder.path("./a.py");
    EXPECT_EQ(same(path, other), 1);
    EXPECT_EQ(cache->short_names.num_entries, 2U);
    std::filesystem::remove(path);
    EXPECT_EQ(same(path, other), 1);
    EXPECT_EQ(cache->failed.num_entries, 0U);
}

TEST_F(PathCacheTest, MissingFileIsRecordedByItsNameAndItsFullPath) {
    const std::string path = folder.file("a.py");
    std::filesystem::current_path(folder.path());
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(same("b.py", path), 0);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE b.py " + path + "\n",
                            "CHECK1 " + folder.path("b.py") + "\n", "CHECK2 0 \n"));
    EXPECT_LE(std::abs(failed("b.py") - time(nullptr)), 1);
    EXPECT_LE(std::abs(failed(folder.path("b.py")) - time(nullptr)), 1);
    EXPECT_EQ(cache->failed.num_entries, 2U);
    EXPECT_EQ(cache->short_names.num_entries, 0U);
}

TEST_F(PathCacheTest, MissingFileIsNotLookedForAgainForThreeSeconds) {
    const std::string path = folder.file("a.py");
    const std::string late = folder.path("./late.py");
    set_failed(late, -1);
    folder.file("late.py");
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(same(late, folder.path("late.py")), 0);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE " + late + " " + folder.path("late.py") + "\n"));
    set_failed(late, -3);
    EXPECT_EQ(same(late, folder.path("late.py")), 1);
    EXPECT_EQ(failed(late), 0);
}

TEST_F(PathCacheTest, FailureInTheFutureHoldsForThreeSecondsToo) {
    folder.file("a.py");
    const std::string other = folder.path("./a.py");
    set_failed(other, 2);
    EXPECT_EQ(same(other, folder.path("a.py")), 0);
    set_failed(other, 100);
    EXPECT_EQ(same(other, folder.path("a.py")), 1);
    EXPECT_EQ(failed(other), 0);
}

TEST_F(PathCacheTest, FailureOfTheFullPathIsTheNamesOwn) {
    folder.file("a.py");
    folder.file("b.py");
    const std::string other = folder.path("./b.py");
    set_failed(folder.path("b.py"), -1);
    Diagnostics diagnostics(kLogFiles);
    EXPECT_EQ(same(other, folder.path("a.py")), 0);
    EXPECT_THAT(diagnostics.take(),
                ElementsAre("**** SAMEFILE " + other + " " + folder.path("a.py") + "\n"));
    EXPECT_NE(failed(other), 0);
}

TEST_F(PathCacheTest, NameWithoutAFullPathIsRecordedAlone) {
    const std::string name = std::string(kMaxPath + 1, 'x');
    EXPECT_EQ(same(name, folder.file("a.py")), 0);
    EXPECT_EQ(cache->failed.num_entries, 1U);
    EXPECT_NE(failed(name), 0);
    EXPECT_EQ(same(name, name), 1);
}

TEST_F(PathCacheTest, LinksThatLeadNowhereAreNoFile) {
    const std::string path = folder.file("a.py");
    std::filesystem::create_symlink("nowhere", folder.path("dangling.py"));
    std::filesystem::create_symlink("circle.py", folder.path("circle.py"));
    EXPECT_EQ(same(folder.path("dangling.py"), path), 0);
    EXPECT_EQ(same(folder.path("circle.py"), path), 0);
    EXPECT_EQ(same(folder.path("circle.py"), folder.path("./circle.py")), 0);
}

TEST_F(PathCacheTest, FullPathFailsWithEachOfItsAllocationsAndLeavesNothingBehind) {
    const std::string path = folder.file("a.py");
    const std::string given = folder.path("./a.py");
    int failures = 0;
    for (;; ++failures) {
        const long blocks = live_blocks();
        const FailingAllocation failing(failures);
        const char* const name = full_path(cache, given.c_str());
        if (!FailingAllocation::happened()) {
            EXPECT_STREQ(name, path.c_str());
            break;
        }
        EXPECT_EQ(name, nullptr);
        EXPECT_EQ(cache->full_names.num_entries, 0U);
        EXPECT_EQ(live_blocks(), blocks);
    }
    EXPECT_GT(failures, 3);
}

TEST_F(PathCacheTest, FileIsNotKnownAsTheSameWhereAnAllocationFails) {
    const std::string path = folder.file("a.py");
    const std::string other = folder.path("./a.py");
    int failures = 0;
    for (;; ++failures) {
        PathCache* const fresh = path_cache_new();
        const FailingAllocation failing(failures);
        const int same = same_file(fresh, path.c_str(), other.c_str());
        const bool happened = FailingAllocation::happened();
        path_cache_free(fresh);
        if (!happened) {
            EXPECT_EQ(same, 1);
            break;
        }
        EXPECT_EQ(same, 0) << failures;
    }
    EXPECT_GT(failures, 6);
}

TEST_F(PathCacheTest, ManyNamesKeepTheirAnswers) {
    std::filesystem::current_path(folder.path());
    for (int i = 0; i < 1000; ++i) {
        folder.file("f" + std::to_string(i) + ".py");
    }
    for (int round = 0; round < 2; ++round) {
        for (int i = 0; i < 1000; ++i) {
            const std::string name = "f" + std::to_string(i) + ".py";
            EXPECT_EQ(full(name), folder.path(name));
            EXPECT_EQ(same(name, folder.path(name)), 1);
            EXPECT_EQ(same(name, folder.path("f1000.py")), 0);
        }
    }
}

}  // namespace
}  // namespace morvik
