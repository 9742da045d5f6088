// Taking back what a library has allocated when memory runs out in the middle of its work.
//
// The XML library holds what it is building by bare pointers. Where an allocation is refused, the
// exception leaves its parser, and the elements that were open then, with all that they hold
// already, belong to nobody any more: a client that brings large files in while memory is short
// could take the rest of it so. Therefore the service's own operator new and delete (the source has
// them) remember, while there is a record, what its thread allocates; the record can free it all.
//
// A thread without a record pays one comparison for each allocation. With one, an allocation costs
// the note of a pointer, and freeing a look at the latest notes: what is freed while a document is
// being built was made just before. An allocation that cannot be noted fails.
#pragma once

#include <cstddef>

namespace veltrancord {

class allocation_record {
  public:
    // Begins to record what this thread allocates by operator new. A thread has one record at most.
    allocation_record() noexcept;
    allocation_record(const allocation_record&) = delete;
    allocation_record& operator=(const allocation_record&) = delete;

    // Ends recording; what was allocated stays.
    ~allocation_record();

    // Ends recording and frees what was allocated meanwhile and not freed yet. No destructor is
    // run, so whoever still points there must forget it; so must an exception that carries a text.
    void free_all() noexcept;

    // For the operators: called with what this thread allocates and frees while it is recorded.
    // Return (make_room): false when memory for one more note could not be had.
    [[nodiscard]] bool make_room() noexcept;
    void add(void* block) noexcept { notes_[count_++] = block; }
    void drop(const void* block) noexcept;

  private:
    void end() noexcept;

    void** notes_ = nullptr;  // of blocks that are allocated; in no order that counts
    std::size_t count_ = 0;
    std::size_t room_ = 0;
};

}  // namespace veltrancord
