// A wire on the canvas. Its curve and arrow are drawn by the canvas, from the geometry this
// window caches; the window itself stays hidden, so nothing covers the arrow, and it carries the
// wire's disconnect command and its link to the document. GUI thread.
#pragma once

#include <vector>

#include "editor/gui_link.h"
#include "g/geometry.h"
#include "g/window.h"

class PatchConnection;

namespace G {
class Renderer;
}

namespace editor {

class VrokDocWindow;

// The drawn shape of a wire in canvas coordinates (before scrolling).
struct WireGeometry {
    G::FloatPoint source;
    G::FloatPoint target;
    std::vector<G::FloatPoint> curve;  // the flattened cubic(s), source to target
    G::FloatPoint arrow[3];            // the triangle a click on opens the wire's menu
    G::Rect extent;                    // everything drawn, with the pens' width
    bool audioInput = false;           // ends at the target's audio input
};

// The curve from `source` to `target`. With the source to the right of the target the wire
// folds back through a horizontal run at `midY`. `arrowAtEnd` puts the arrow where the first of
// the two halves ends.
void LayOutWire(WireGeometry& wire, G::FloatPoint source, G::FloatPoint target, float midY);
// The preview curve while a wire is being made: the fold runs through the middle point.
std::vector<G::FloatPoint> PreviewCurve(G::FloatPoint source, G::FloatPoint target);
// Bounding box of points, grown by `dx` and `dy` each side.
G::Rect PointsExtent(const std::vector<G::FloatPoint>& points, int dx, int dy);

class VrokConnectionWindow : public G::Window, public EditorGui {
public:
    VrokConnectionWindow(VrokDocWindow* canvas, PatchConnection* connection);
    ~VrokConnectionWindow() override;

    // Recomputes the geometry from the block windows at both ends; when both moved by the same
    // amount the cached shape is only shifted.
    void UpdateGeometry();
    // Strokes the wire in the canvas's view.
    void Draw(G::Renderer& renderer) const;
    // Whether a canvas point (before scrolling) lies inside the arrow.
    bool ArrowContains(float x, float y) const;

    void OnCommand(int id) override;
    void StorableChanged(int source, Storable* storable) override;
    void StorableRemoved(int source, Storable* storable) override;

    PatchConnection* connection;
    VrokDocWindow* canvas;
    WireGeometry geometry;
    bool hasGeometry = false;
};

}  // namespace editor
