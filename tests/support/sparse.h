// Reserved address space for images of gigabytes: an anonymous private
// mapping without swap reservation.  Untouched pages read as zero and cost
// no memory; only the pages a call writes become real.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/mman.h>

namespace lumitest {

class SparseBlock {
public:
    explicit SparseBlock(size_t bytes) : size_(bytes)
    {
        void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        base_ = p == MAP_FAILED ? nullptr : (uint8_t *)p;
    }
    ~SparseBlock()
    {
        if (base_)
            munmap(base_, size_);
    }
    SparseBlock(const SparseBlock &) = delete;
    SparseBlock &operator=(const SparseBlock &) = delete;

    uint8_t *data() const { return base_; }
    size_t size() const { return size_; }

private:
    uint8_t *base_ = nullptr;
    size_t size_;
};

} // namespace lumitest
