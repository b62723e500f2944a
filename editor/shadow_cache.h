// Drop shadows of block windows, made once per window size from the theme's shadow sheet and
// then only blended: resampling the sheet's edge strips for every block on every paint was the
// largest cost of a canvas repaint. GUI thread.
#pragma once

#include <map>
#include <memory>
#include <utility>

#include "g/bitmap.h"

namespace G {
class Renderer;
}

namespace editor {

class ShadowCache {
public:
    // The shadow around a window of w x h at (x, y), in the renderer's view. Falls back to the
    // renderer's own shadow for windows too small for the corners.
    void Draw(G::Renderer& renderer, int x, int y, int w, int h);

private:
    // A 4-byte image of the shadow, w + 22 by h + 21, clear where no piece lies; null without
    // a sheet or when the window is too small.
    const G::Bitmap* Get(int w, int h);

    std::map<std::pair<int, int>, std::unique_ptr<G::Bitmap>> images;
};

}  // namespace editor
