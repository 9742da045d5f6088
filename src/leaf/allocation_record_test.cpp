#include "leaf/allocation_record.h"

#include <gtest/gtest.h>

#include <latch>
#include <limits>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

namespace veltrancord {
namespace {

// Something that holds blocks by bare pointers, as the XML library does.
struct chain {
    chain* next = nullptr;
    std::string text;
};

chain* make_chain(int length) {
    chain* first = nullptr;
    for (int i = 0; i < length; ++i) {
        first = new chain{first, std::string(100, 'x')};
    }
    return first;
}

void free_chain(chain* first) {
    while (first != nullptr) {
        const std::unique_ptr<chain> owner(first);
        first = first->next;
    }
}

// Were a block not freed, the leak check of the sanitizer's build would tell; freed twice, any.
TEST(AllocationRecord, FreesWhatWasAllocatedAndNotFreed) {
    allocation_record record;
    free_chain(make_chain(1000));
    make_chain(10'000);
    std::make_unique<int[]>(100).release();
    record.free_all();
}

TEST(AllocationRecord, LeavesAloneWhatWasThereBeforeAndComesAfterwards) {
    chain* const before = make_chain(10);
    auto gone = std::make_unique<std::string>(200, 'g');
    chain* after = nullptr;
    {
        allocation_record record;
        make_chain(10);
        gone.reset();  // not in the record
        record.free_all();
        after = make_chain(10);
    }
    EXPECT_EQ(before->text, std::string(100, 'x'));
    EXPECT_EQ(after->text, std::string(100, 'x'));
    free_chain(before);
    free_chain(after);
}

TEST(AllocationRecord, KeepsEverythingWhenItMerelyEnds) {
    chain* kept = nullptr;
    {
        const allocation_record record;
        kept = make_chain(10'000);
    }
    EXPECT_EQ(kept->text, std::string(100, 'x'));
    free_chain(kept);
}

TEST(AllocationRecord, IsOfItsOwnThreadOnly) {
    std::latch recording(1);
    std::latch allocated(1);
    std::thread other([&] {
        allocation_record record;
        recording.count_down();
        allocated.wait();
        record.free_all();
    });
    recording.wait();
    chain* const mine = make_chain(1000);
    allocated.count_down();
    other.join();
    EXPECT_EQ(mine->text, std::string(100, 'x'));
    free_chain(mine);
}

TEST(AllocationRecord, ServesAThreadAgainAndAgain) {
    for (int turn = 0; turn < 1000; ++turn) {
        allocation_record record;
        make_chain(turn % 7);
        record.free_all();
    }
}

TEST(AllocationRecord, FormsOfAllocationFitTogether) {
    allocation_record record;
    const std::unique_ptr<int> one(new (std::nothrow) int(1));
    const std::unique_ptr<char[]> many(new (std::nothrow) char[0]);
    const std::vector<int> numbers(1000, 7);
    EXPECT_NE(one, nullptr);
    EXPECT_NE(many, nullptr);
    EXPECT_EQ(numbers.back(), 7);
}

TEST(AllocationRecord, MemoryThatCannotBeHadIsAnExceptionOrANullPointer) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "a sanitizer's allocator ends the process instead";
#endif
    // More than there can be, in a form that no compiler looks through.
    volatile std::size_t most = std::numeric_limits<std::size_t>::max() / 4;
    allocation_record record;
    EXPECT_EQ(::operator new(most, std::nothrow), nullptr);
    EXPECT_THROW(static_cast<void>(::operator new(most)), std::bad_alloc);
}

}  // namespace
}  // namespace veltrancord
