#include "leaf/allocation_record.h"

#include <cstdlib>
#include <new>
#include <utility>

namespace veltrancord {

namespace {

constexpr std::size_t first_room = 512;

// It is only ever part of a program, so it needs no call to find out where it is.
[[gnu::tls_model("initial-exec")]] constinit thread_local allocation_record* g_record = nullptr;

// Return: null when memory could not be had, for the note either.
void* allocate(std::size_t size) noexcept {
    allocation_record* const record = g_record;
    if (record == nullptr) {
        return std::malloc(size > 0 ? size : 1);
    }
    void* const block = record->make_room() ? std::malloc(size > 0 ? size : 1) : nullptr;
    if (block != nullptr) {
        record->add(block);
    }
    return block;
}

void* allocate_or_throw(std::size_t size) {
    void* const block = allocate(size);
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    return block;
}

void release(void* block) noexcept {
    if (g_record != nullptr && block != nullptr) {
        g_record->drop(block);
    }
    std::free(block);
}

}  // namespace

allocation_record::allocation_record() noexcept {
    g_record = this;
}

allocation_record::~allocation_record() {
    end();
}

void allocation_record::end() noexcept {
    if (g_record == this) {
        g_record = nullptr;
    }
    std::free(std::exchange(notes_, nullptr));
    count_ = 0;
    room_ = 0;
}

void allocation_record::free_all() noexcept {
    g_record = nullptr;
    for (std::size_t i = 0; i < count_; ++i) {
        std::free(notes_[i]);
    }
    end();
}

bool allocation_record::make_room() noexcept {
    if (count_ < room_) {
        return true;
    }
    const std::size_t wanted = room_ > 0 ? room_ * 2 : first_room;
    void* const grown = std::realloc(notes_, wanted * sizeof(*notes_));
    if (grown == nullptr) {
        return false;
    }
    notes_ = static_cast<void**>(grown);
    room_ = wanted;
    return true;
}

void allocation_record::drop(const void* block) noexcept {
    for (std::size_t i = count_; i > 0; --i) {
        if (notes_[i - 1] == block) {
            notes_[i - 1] = notes_[--count_];
            return;
        }
    }
}

}  // namespace veltrancord

// All of them, so that whatever one allocates another can free. Weak, so that a test program can
// have its own.
[[gnu::weak]] void* operator new(std::size_t size) {
    return veltrancord::allocate_or_throw(size);
}
[[gnu::weak]] void* operator new[](std::size_t size) {
    return veltrancord::allocate_or_throw(size);
}
[[gnu::weak]] void* operator new(std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return veltrancord::allocate(size);
}
[[gnu::weak]] void* operator new[](std::size_t size, const std::nothrow_t& /*tag*/) noexcept {
    return veltrancord::allocate(size);
}
[[gnu::weak]] void operator delete(void* block) noexcept {
    veltrancord::release(block);
}
[[gnu::weak]] void operator delete[](void* block) noexcept {
    veltrancord::release(block);
}
[[gnu::weak]] void operator delete(void* block, std::size_t /*size*/) noexcept {
    veltrancord::release(block);
}
[[gnu::weak]] void operator delete[](void* block, std::size_t /*size*/) noexcept {
    veltrancord::release(block);
}
[[gnu::weak]] void operator delete(void* block, const std::nothrow_t& /*tag*/) noexcept {
    veltrancord::release(block);
}
[[gnu::weak]] void operator delete[](void* block, const std::nothrow_t& /*tag*/) noexcept {
    veltrancord::release(block);
}
