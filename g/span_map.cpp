// SpanMap: sorted, merged x intervals per row, nodes recycled through a free list.
#include "g/span_map.h"

#include <algorithm>

namespace G {

void SpanMap::Reset(int w, int h) {
    width = std::max(0, w);
    height = std::max(0, h);
    heads.assign(height, -1);
    rowDirty.assign(height, 0);
    // Every node goes back to the free list; the pool keeps its capacity.
    freeList = -1;
    for (int i = static_cast<int>(pool.size()) - 1; i >= 0; --i) {
        pool[i].next = freeList;
        freeList = i;
    }
}

int SpanMap::NewNode(int x0, int x1, int next) {
    int node;
    if (freeList >= 0) {
        node = freeList;
        freeList = pool[node].next;
        pool[node] = {x0, x1, next};
    } else {
        node = static_cast<int>(pool.size());
        pool.push_back({x0, x1, next});
    }
    return node;
}

void SpanMap::FreeNode(int node) {
    pool[node].next = freeList;
    freeList = node;
}

void SpanMap::Add(const Rect& r) {
    int x0 = std::max(0, r.x);
    int x1 = std::min(width, r.x + r.w);
    int y0 = std::max(0, r.y);
    int y1 = std::min(height, r.y + r.h);
    if (x0 >= x1 || y0 >= y1) return;
    for (int y = y0; y < y1; ++y) {
        rowDirty[y] = 1;
        // Skip the spans that end before x0; touching ones merge. Links are kept as node
        // indexes because NewNode may grow the pool.
        int prev = -1;
        int node = heads[y];
        while (node >= 0 && pool[node].x1 < x0) {
            prev = node;
            node = pool[node].next;
        }
        if (node < 0 || pool[node].x0 > x1) {
            int fresh = NewNode(x0, x1, node);
            (prev < 0 ? heads[y] : pool[prev].next) = fresh;
            continue;
        }
        // Merge into `node` and swallow the spans that now overlap or touch it.
        pool[node].x0 = std::min(pool[node].x0, x0);
        pool[node].x1 = std::max(pool[node].x1, x1);
        while (pool[node].next >= 0 && pool[pool[node].next].x0 <= pool[node].x1) {
            int gone = pool[node].next;
            pool[node].x1 = std::max(pool[node].x1, pool[gone].x1);
            pool[node].next = pool[gone].next;
            FreeNode(gone);
        }
    }
}

}  // namespace G
