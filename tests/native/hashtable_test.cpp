#include <gmock/gmock.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "allocation.h"
#include "hashtable.h"

namespace morvik {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

// A key of the width a table has, one for each number.
std::string numbered_key(uint32_t width, uint32_t number) {
    if (width == kStringKeys) {
        return "key " + std::to_string(number);
    }
    std::string key(width, '\0');
    memcpy(&key[0], &number, width < sizeof(number) ? width : sizeof(number));
    return key;
}

uint32_t bucket_of(const HashTable& table, const HashEntry* entry) {
    return static_cast<uint32_t>(entry->bucket - table.buckets);
}

// The buckets that keys belong to, reckoned apart from the table.
uint32_t string_bucket(const std::string& key, uint32_t mask) {
    uint32_t hash = 0;
    for (const char c : key) {
        hash = hash + (hash << 3U) + static_cast<uint32_t>(static_cast<int>(c));
    }
    return hash & mask;
}

uint32_t fixed_bucket(const std::string& key, uint32_t down_shift, uint32_t mask) {
    int64_t sum = 0;
    for (const char c : key) {
        sum += c;
    }
    const auto product = static_cast<int32_t>(static_cast<uint32_t>(sum) * 1103515245U);
    return static_cast<uint32_t>(product >> down_shift) & mask;
}

class HashTableTest : public testing::Test {
  protected:
    void TearDown() override { hash_delete_table(&table_); }

    HashEntry* create(const std::string& key) {
        int is_new = -1;
        return hash_create(&table_, key.data(), &is_new);
    }

    HashEntry* find(const std::string& key) { return hash_find(&table_, key.data()); }

    std::vector<std::string> walk() {
        std::vector<std::string> keys;
        HashSearch search;
        for (HashEntry* entry = hash_first(&table_, &search); entry != nullptr;
             entry = hash_next(&search)) {
            const char* const key = hash_get_key(&table_, entry);
            keys.push_back(table_.key_width == kStringKeys ? std::string(key)
                                                           : std::string(key, table_.key_width));
        }
        return keys;
    }

    std::string stats() {
        char* const text = hash_stats(&table_);
        std::string copy = text != nullptr ? text : "(out of memory)";
        free(text);
        return copy;
    }

    void expect_size(uint32_t buckets, uint32_t rebuild, uint32_t shift, uint32_t mask) {
        EXPECT_EQ(table_.num_buckets, buckets);
        EXPECT_EQ(table_.rebuild_size, rebuild);
        EXPECT_EQ(table_.down_shift, shift);
        EXPECT_EQ(table_.mask, mask);
    }

    HashTable table_;
};

class AnyWidth : public HashTableTest, public testing::WithParamInterface<uint32_t> {
  protected:
    void SetUp() override { hash_init(&table_, GetParam()); }

    std::string key(uint32_t number) { return numbered_key(GetParam(), number); }

    void create_up_to(uint32_t count) {
        for (uint32_t i = table_.num_entries; i < count; ++i) {
            hash_set_value(create(key(i)), reinterpret_cast<void*>(static_cast<intptr_t>(i) + 1));
        }
    }

    // Each of the first `count` keys has its entry, its value, its bucket, and a place in a walk.
    void expect_whole(uint32_t count) {
        EXPECT_EQ(table_.num_entries, count);
        for (uint32_t i = 0; i < count; ++i) {
            const HashEntry* const entry = find(key(i));
            ASSERT_NE(entry, nullptr) << i;
            EXPECT_EQ(hash_get_value(entry), reinterpret_cast<void*>(static_cast<intptr_t>(i) + 1));
            EXPECT_EQ(bucket_of(table_, entry),
                      GetParam() == kStringKeys
                          ? string_bucket(key(i), table_.mask)
                          : fixed_bucket(key(i), table_.down_shift, table_.mask));
        }
        const std::vector<std::string> keys = walk();
        EXPECT_EQ(keys.size(), count);
        EXPECT_EQ(std::set<std::string>(keys.begin(), keys.end()).size(), count);
        EXPECT_EQ(find(key(count)), nullptr);
    }
};

INSTANTIATE_TEST_SUITE_P(Widths, AnyWidth, testing::Values(kStringKeys, 4, 8));

TEST_P(AnyWidth, BeginsEmptyWithFourBuckets) {
    expect_size(4, 12, 28, 3);
    EXPECT_EQ(table_.num_entries, 0U);
    EXPECT_EQ(table_.buckets, table_.static_buckets);
    EXPECT_EQ(table_.key_width, GetParam());
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_EQ(find(key(0)), nullptr);
}

TEST_P(AnyWidth, GrowsAtTwelveEntries) {
    create_up_to(11);
    expect_size(4, 12, 28, 3);
    EXPECT_EQ(table_.buckets, table_.static_buckets);
    create_up_to(12);
    expect_size(16, 48, 26, 15);
    EXPECT_NE(table_.buckets, table_.static_buckets);
    expect_whole(12);
}

TEST_P(AnyWidth, GrowsAtFortyEightEntries) {
    create_up_to(47);
    expect_size(16, 48, 26, 15);
    create_up_to(48);
    expect_size(64, 192, 24, 63);
    expect_whole(48);
}

TEST_P(AnyWidth, GrowsAtHundredNinetyTwoEntries) {
    create_up_to(191);
    expect_size(64, 192, 24, 63);
    create_up_to(192);
    expect_size(256, 768, 22, 255);
    expect_whole(192);
}

TEST_P(AnyWidth, KeepsGrowing) {
    create_up_to(5000);
    expect_size(4096, 12288, 18, 4095);
    expect_whole(5000);
}

TEST_P(AnyWidth, NewEntryHasNoValue) {
    int is_new = -1;
    const HashEntry* const entry = hash_create(&table_, key(1).data(), &is_new);
    EXPECT_EQ(is_new, 1);
    EXPECT_EQ(hash_get_value(entry), nullptr);
    EXPECT_EQ(entry->table, &table_);
}

TEST_P(AnyWidth, ExistingKeyGivesTheSameEntry) {
    HashEntry* const entry = create(key(1));
    hash_set_value(entry, &table_);
    int is_new = -1;
    EXPECT_EQ(hash_create(&table_, key(1).data(), &is_new), entry);
    EXPECT_EQ(is_new, 0);
    EXPECT_EQ(hash_get_value(entry), &table_);
    EXPECT_EQ(table_.num_entries, 1U);
}

TEST_P(AnyWidth, KeyIsCopied) {
    std::string given = key(1);
    const HashEntry* const entry = create(given);
    given[0] = static_cast<char>(given[0] + 1);
    EXPECT_EQ(memcmp(hash_get_key(&table_, entry), key(1).data(), key(1).size()), 0);
    EXPECT_EQ(find(key(1)), entry);
}

TEST_P(AnyWidth, WalkMayDeleteTheEntryJustReturned) {
    create_up_to(100);
    HashSearch search;
    uint32_t visited = 0;
    for (HashEntry* entry = hash_first(&table_, &search); entry != nullptr;
         entry = hash_next(&search)) {
        hash_delete_entry(entry);
        ++visited;
    }
    EXPECT_EQ(visited, 100U);
    expect_whole(0);
}

TEST_P(AnyWidth, EntriesAreDeletedOneByOne) {
    create_up_to(30);
    // From the end, from the beginning, and from the middle of chains.
    for (uint32_t left = 30; left > 20; --left) {
        hash_delete_entry(find(key(left - 1)));
        expect_whole(left - 1);
    }
    for (uint32_t i = 0; i < 20; i += 2) {
        hash_delete_entry(find(key(i)));
    }
    for (uint32_t i = 0; i < 20; ++i) {
        EXPECT_EQ(find(key(i)) != nullptr, i % 2 == 1) << i;
    }
    EXPECT_EQ(table_.num_entries, 10U);
}

TEST_P(AnyWidth, DeletedKeyMayComeAgain) {
    create_up_to(3);
    hash_delete_entry(find(key(2)));
    create_up_to(3);
    expect_whole(3);
}

TEST_P(AnyWidth, DeletingLeavesNoBlock) {
    const long before = live_blocks();
    create_up_to(100);
    EXPECT_EQ(live_blocks(), before + 101);
    for (uint32_t i = 0; i < 10; ++i) {
        HashEntry* const entry = find(key(i));
        hash_set_value(entry, malloc(8));
        hash_delete_entry_and_value(entry);
    }
    EXPECT_EQ(live_blocks(), before + 91);
    for (uint32_t i = 10; i < 20; ++i) {
        HashEntry* const entry = find(key(i));
        hash_set_value(entry, nullptr);
        hash_delete_entry_and_value(entry);
    }
    EXPECT_EQ(live_blocks(), before + 81);
    hash_delete_table(&table_);
    EXPECT_EQ(live_blocks(), before);
}

TEST_P(AnyWidth, DeletingATableLeavesTheValues) {
    const long before = live_blocks();
    void* const value = malloc(8);
    hash_set_value(create(key(0)), value);
    hash_delete_table(&table_);
    EXPECT_EQ(live_blocks(), before + 1);
    free(value);
}

TEST_P(AnyWidth, DeletingATableMayFreeTheValues) {
    const long before = live_blocks();
    for (uint32_t i = 0; i < 60; ++i) {
        HashEntry* const entry = create(key(i));
        if (i % 2 == 0) {
            hash_set_value(entry, malloc(8));
        }
    }
    hash_delete_table_and_values(&table_);
    EXPECT_EQ(live_blocks(), before);
}

TEST_P(AnyWidth, DeletedTableFindsAndCreatesNothing) {
    create_up_to(20);
    hash_delete_table(&table_);
    int is_new = -1;
    EXPECT_EQ(hash_find(&table_, key(1).data()), nullptr);
    EXPECT_EQ(hash_create(&table_, key(1).data(), &is_new), nullptr);
    EXPECT_EQ(is_new, -1);
    EXPECT_THAT(walk(), IsEmpty());
    EXPECT_EQ(table_.num_entries, 20U);
    EXPECT_EQ(table_.num_buckets, 16U);
}

TEST_P(AnyWidth, DeletedTableMayBeInitialisedAgain) {
    create_up_to(20);
    hash_delete_table(&table_);
    hash_init(&table_, GetParam());
    expect_size(4, 12, 28, 3);
    create_up_to(5);
    expect_whole(5);
}

TEST_P(AnyWidth, TableDeletedTwiceStaysDeleted) {
    create_up_to(20);
    hash_delete_table(&table_);
    hash_delete_table_and_values(&table_);
    EXPECT_EQ(find(key(1)), nullptr);
}

TEST_P(AnyWidth, EntryThatFindsNoMemoryIsNotThere) {
    create_up_to(5);
    int is_new = -1;
    {
        const FailingAllocation failing;
        EXPECT_EQ(hash_create(&table_, key(5).data(), &is_new), nullptr);
    }
    EXPECT_EQ(is_new, 1);
    expect_whole(5);
    create_up_to(6);
    expect_whole(6);
}

TEST_P(AnyWidth, GrowthThatFindsNoMemoryKeepsEverything) {
    create_up_to(11);
    {
        const FailingAllocation failing(1);
        create_up_to(12);
        EXPECT_TRUE(FailingAllocation::happened());
    }
    // Only the count of buckets has gone ahead.
    expect_size(16, 12, 28, 3);
    EXPECT_EQ(table_.buckets, table_.static_buckets);
    expect_whole(12);
}

TEST_P(AnyWidth, GrowthIsTriedAgainAtTheNextEntry) {
    create_up_to(11);
    for (uint32_t count = 12; count < 15; ++count) {
        const FailingAllocation failing(1);
        create_up_to(count);
        EXPECT_TRUE(FailingAllocation::happened());
        expect_whole(count);
    }
    create_up_to(15);
    EXPECT_EQ(table_.mask, 15U);
    EXPECT_EQ(table_.rebuild_size, 48U);
    expect_whole(15);
    create_up_to(300);
    expect_whole(300);
}

TEST_P(AnyWidth, TableWhoseGrowthFailedIsDeletedWhole) {
    const long before = live_blocks();
    create_up_to(11);
    {
        const FailingAllocation failing(1);
        create_up_to(12);
    }
    hash_delete_table(&table_);
    EXPECT_EQ(live_blocks(), before);
}

TEST_P(AnyWidth, TableThatWasNeverInitialisedFindsAndCreatesNothing) {
    HashTable blank;
    int is_new = -1;
    EXPECT_EQ(hash_find(&blank, key(1).data()), nullptr);
    EXPECT_EQ(hash_create(&blank, key(1).data(), &is_new), nullptr);
    hash_delete_table(&blank);
}

class StringKeys : public HashTableTest {
  protected:
    void SetUp() override { hash_init(&table_, kStringKeys); }
};

TEST_F(StringKeys, EmptyStringIsAKey) {
    const HashEntry* const entry = create("");
    EXPECT_EQ(bucket_of(table_, entry), 0U);
    EXPECT_EQ(find(""), entry);
    EXPECT_STREQ(hash_get_key(&table_, entry), "");
    EXPECT_EQ(find("a"), nullptr);
}

TEST_F(StringKeys, HashIsNineTimesTheHashBeforePlusTheCharacter) {
    EXPECT_EQ(bucket_of(table_, create("a")), 1U);    // 97
    EXPECT_EQ(bucket_of(table_, create("ab")), 3U);   // 97 * 9 + 98 = 971
    EXPECT_EQ(bucket_of(table_, create("abc")), 2U);  // 971 * 9 + 99 = 8838
}

TEST_F(StringKeys, CharactersAreSigned) {
    EXPECT_EQ(bucket_of(table_, create("\xff")), 3U);  // -1
    EXPECT_EQ(bucket_of(table_, create("\x80")), 0U);  // -128
    EXPECT_EQ(bucket_of(table_, create("\x81")), 1U);  // -127
}

TEST_F(StringKeys, PrefixIsAnotherKey) {
    const HashEntry* const entry = create("abc");
    EXPECT_EQ(find("ab"), nullptr);
    EXPECT_EQ(find("abcd"), nullptr);
    EXPECT_NE(create("ab"), entry);
    EXPECT_EQ(table_.num_entries, 2U);
}

TEST_F(StringKeys, KeyEndsAtItsNul) {
    EXPECT_EQ(create(std::string("abc\0def", 7)), create("abc"));
}

TEST_F(StringKeys, LongKeysAreKeys) {
    const std::string first(10000, 'x');
    const std::string second = first + "y";
    EXPECT_NE(create(first), create(second));
    EXPECT_EQ(hash_get_key(&table_, find(second)), second);
}

TEST_F(StringKeys, WalkGoesByBucketAndFromTheNewest) {
    // 97, 101 and 105 fall into bucket 1, 98 into 2, 96 into 0.
    for (const char* const key : {"b", "a", "e", "`", "i"}) {
        create(key);
    }
    EXPECT_THAT(walk(), ElementsAre("`", "i", "e", "a", "b"));
}

TEST_F(StringKeys, GrowthTurnsTheOrderOfAChainRound) {
    // All of these share a bucket of 4 and one of 16: their codes are 16 apart or end them so.
    for (const char* const key : {"0", "@", "P", "`", "p"}) {
        create(key);
    }
    EXPECT_THAT(walk(), ElementsAre("p", "`", "P", "@", "0"));
    for (const char* const key : {"1", "2", "3", "5", "6", "7", "9"}) {
        create(key);
    }
    EXPECT_EQ(table_.mask, 15U);
    EXPECT_THAT(walk(), ElementsAre("0", "@", "P", "`", "p", "1", "2", "3", "5", "6", "7", "9"));
}

TEST_F(StringKeys, StatisticsOfAnEmptyTable) {
    EXPECT_THAT(stats(), testing::MatchesRegex("0 entries in table, 4 buckets\n"
                                               "number of buckets with 0 entries: 4\n"
                                               "number of buckets with 1 entries: 0\n"
                                               "number of buckets with 2 entries: 0\n"
                                               "number of buckets with 3 entries: 0\n"
                                               "number of buckets with 4 entries: 0\n"
                                               "number of buckets with 5 entries: 0\n"
                                               "number of buckets with 6 entries: 0\n"
                                               "number of buckets with 7 entries: 0\n"
                                               "number of buckets with 8 entries: 0\n"
                                               "number of buckets with 9 entries: 0\n"
                                               "number of buckets with 10 or more entries: 0\n"
                                               "average search distance for entry: -?nan"));
}

TEST_F(StringKeys, StatisticsCountTheChains) {
    // Chains of 3, 1 and 1: (4 * 3/5 + 2 * 1/5 + 2 * 1/5) / 2 = 1.6.
    for (const char* const key : {"b", "a", "e", "`", "i"}) {
        create(key);
    }
    EXPECT_EQ(stats(),
              "5 entries in table, 4 buckets\n"
              "number of buckets with 0 entries: 1\n"
              "number of buckets with 1 entries: 2\n"
              "number of buckets with 2 entries: 0\n"
              "number of buckets with 3 entries: 1\n"
              "number of buckets with 4 entries: 0\n"
              "number of buckets with 5 entries: 0\n"
              "number of buckets with 6 entries: 0\n"
              "number of buckets with 7 entries: 0\n"
              "number of buckets with 8 entries: 0\n"
              "number of buckets with 9 entries: 0\n"
              "number of buckets with 10 or more entries: 0\n"
              "average search distance for entry: 1.6");
}

TEST_F(StringKeys, StatisticsCountLongChainsTogether) {
    for (int i = 0; i < 11; ++i) {
        // Codes 4 apart: one bucket.
        create(std::string(1, static_cast<char>('0' + 4 * i)));
    }
    EXPECT_THAT(stats(), HasSubstr("number of buckets with 0 entries: 3\n"));
    EXPECT_THAT(stats(), HasSubstr("number of buckets with 10 or more entries: 1\n"
                                   "average search distance for entry: 6.0"));
}

TEST_F(StringKeys, StatisticsThatFindNoMemoryAreNone) {
    const FailingAllocation failing;
    EXPECT_EQ(hash_stats(&table_), nullptr);
}

TEST_F(StringKeys, StatisticsOfADeletedTableHaveItsCounts) {
    create("a");
    hash_delete_table(&table_);
    EXPECT_THAT(stats(), HasSubstr("1 entries in table, 4 buckets\n"));
}

class FixedKeys : public HashTableTest {};

TEST_F(FixedKeys, PermutedBytesShareABucketAndAreToldApart) {
    hash_init(&table_, 4);
    std::string key("\1\2\3\4", 4);
    std::set<HashEntry*> entries;
    std::set<uint32_t> buckets;
    do {
        HashEntry* const entry = create(key);
        entries.insert(entry);
        buckets.insert(bucket_of(table_, entry));
        EXPECT_EQ(find(key), entry);
    } while (std::next_permutation(key.begin(), key.end()));
    EXPECT_EQ(entries.size(), 24U);
    EXPECT_EQ(table_.num_entries, 24U);
}

TEST_F(FixedKeys, PermutedBytesHashAlike) {
    hash_init(&table_, 8);
    EXPECT_EQ(create(std::string("\1\2\0\0\0\0\0\0", 8))->bucket,
              create(std::string("\0\0\0\0\0\0\2\1", 8))->bucket);
}

TEST_F(FixedKeys, HighBitsOfTheProductSelectTheBucket) {
    hash_init(&table_, 4);
    // 10 * 1103515245 is 0x291BF1042, its topmost 4 bits of 32 are 9.
    EXPECT_EQ(bucket_of(table_, create(std::string("\x0a\0\0\0", 4))), 1U);
    // -1103515245 is 0xBE39B193.
    EXPECT_EQ(bucket_of(table_, create(std::string("\xff\0\0\0", 4))), 3U);
    EXPECT_EQ(bucket_of(table_, create(std::string(4, '\0'))), 0U);
}

TEST_F(FixedKeys, NulBytesBelongToTheKey) {
    hash_init(&table_, 8);
    const HashEntry* const first = create(std::string("a\0\0\0\0\0\0b", 8));
    EXPECT_NE(create(std::string("a\0\0\0\0\0\0c", 8)), first);
    EXPECT_EQ(find(std::string("a\0\0\0\0\0\0b", 8)), first);
    EXPECT_EQ(find(std::string("a\0\0\0\0\0\0\0", 8)), nullptr);
}

}  // namespace
}  // namespace morvik
