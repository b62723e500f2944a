// DelayRing: the circular float store under the master chorus and delay. Its length need
// not be a power of two, so reads wrap by compare and add.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>

struct DelayRing {
    // `length` - 0.5, rounded to nearest with ties to even: 13230.0 and 13231.0 both give
    // 13230, so an exact odd length loses one. At least one slot. Allocates, zeroed.
    explicit DelayRing(float length)
        : size(std::max(1, int(std::nearbyint(double(length) - 0.5)))),
          data(std::make_unique<float[]>(size_t(size))) {}

    // Stores `x` at `write` and moves on.
    void Push(float x) {
        data[write] = x;
        if (++write == size) write = 0;
    }
    // Stores `n` samples in order, as n Pushes would.
    void PushRun(const float* x, int n) {
        while (n > 0) {
            const int piece = std::min(n, size - write);
            std::memcpy(data.get() + write, x, sizeof(float) * size_t(piece));
            x += piece;
            n -= piece;
            write += piece;
            if (write == size) write = 0;
        }
    }
    // An index at most one `size` outside 0..size-1, brought back in.
    int Wrap(int i) const { return i < 0 ? i + size : (i >= size ? i - size : i); }
    // A read position brought into 0..size, in double precision; lengths past one ring wrap.
    double WrapPosition(double q) const {
        while (q < 0.0) q += size;
        while (q >= size) q -= size;
        return q;
    }

    int size;
    std::unique_ptr<float[]> data;
    int write = 0;  // next slot to write
};
