// Per-row lists of dirty x intervals in root coordinates, which the paint pass composites.
// Nodes come from a free list, so a steady-state paint does not allocate.
#pragma once

#include <cstdint>
#include <vector>

#include "g/geometry.h"

namespace G {

class SpanMap {
public:
    struct Node {
        int x0;  // half-open [x0, x1)
        int x1;
        int next;  // node index, -1 ends the list
    };

    // All rows clean, every node back to the free list.
    void Reset(int width, int height);
    // Clips to the map, marks the rows and merges the x interval into each row's sorted list:
    // overlapping and touching intervals merge; one wholly inside another is dropped.
    void Add(const Rect& r);

    bool RowDirty(int y) const { return rowDirty[y] != 0; }
    int FirstSpan(int y) const { return heads[y]; }
    const Node& At(int node) const { return pool[node]; }
    int Width() const { return width; }
    int Height() const { return height; }

private:
    int NewNode(int x0, int x1, int next);
    void FreeNode(int node);

    std::vector<Node> pool;
    std::vector<int> heads;
    std::vector<uint8_t> rowDirty;
    int freeList = -1;
    int width = 0;
    int height = 0;
};

}  // namespace G
