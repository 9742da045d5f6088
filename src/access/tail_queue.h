// Doubly linked tail queues: the lists of permits, groups, filter rules, sessions and captchas.
//
// The links lie in the elements, so that an element is found, appended and taken out again without
// any memory of the queue's own, and nothing but making an element can fail. Each element knows the
// `next` field that points at it, and the queue the last such field: appending and taking out from
// anywhere are a few assignments, first and last elements included, without a special case.
#pragma once

#include <cstddef>
#include <iterator>
#include <memory>

namespace veltrancord {

template <class T>
struct tail_queue_link {
    T* next = nullptr;
    T** previous_next = nullptr;  // the field that points at this element
};

// Owns its elements, which have a member `tail_queue_link<T> link`. Neither copied nor moved: the
// first element points back into it.
template <class T>
class tail_queue {
  public:
    template <class Element>
    class basic_iterator {
      public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = T;
        using difference_type = std::ptrdiff_t;
        using pointer = Element*;
        using reference = Element&;

        basic_iterator() noexcept = default;
        explicit basic_iterator(Element* element) noexcept : element_(element) {}
        reference operator*() const noexcept { return *element_; }
        pointer operator->() const noexcept { return element_; }
        basic_iterator& operator++() noexcept {
            element_ = element_->link.next;
            return *this;
        }
        basic_iterator operator++(int) noexcept {
            const basic_iterator before = *this;
            ++*this;
            return before;
        }
        bool operator==(const basic_iterator&) const noexcept = default;

      private:
        Element* element_ = nullptr;
    };
    using iterator = basic_iterator<T>;
    using const_iterator = basic_iterator<const T>;

    constexpr tail_queue() noexcept = default;
    tail_queue(const tail_queue&) = delete;
    tail_queue& operator=(const tail_queue&) = delete;
    ~tail_queue() { clear(); }

    [[nodiscard]] bool empty() const noexcept { return first_ == nullptr; }

    // Takes the element over, which is not null, and puts it behind all others.
    //
    // Return: the element, until it is taken out or the queue is cleared.
    T& append(std::unique_ptr<T> element) noexcept {
        T& added = *element.release();
        added.link.next = nullptr;
        added.link.previous_next = last_next_;
        *last_next_ = &added;
        last_next_ = &added.link.next;
        return added;
    }

    // Takes out an element of this queue.
    //
    // Return: the element, now the caller's.
    std::unique_ptr<T> remove(T& element) noexcept {
        if (element.link.next != nullptr) {
            element.link.next->link.previous_next = element.link.previous_next;
        } else {
            last_next_ = element.link.previous_next;
        }
        *element.link.previous_next = element.link.next;
        element.link = {};
        return std::unique_ptr<T>(&element);
    }

    // Return: the first element, now the caller's, or null when the queue is empty.
    std::unique_ptr<T> remove_first() noexcept { return empty() ? nullptr : remove(*first_); }

    // Frees every element.
    void clear() noexcept {
        while (!empty()) {
            remove_first();
        }
    }

    [[nodiscard]] iterator begin() noexcept { return iterator(first_); }
    [[nodiscard]] iterator end() noexcept { return iterator(); }
    [[nodiscard]] const_iterator begin() const noexcept { return const_iterator(first_); }
    [[nodiscard]] const_iterator end() const noexcept { return const_iterator(); }

  private:
    T* first_ = nullptr;
    T** last_next_ = &first_;
};

}  // namespace veltrancord
