// Wire geometry and drawing, and the wire's window.
#include "editor/vrok_connection_window.h"

#include <algorithm>
#include <cmath>

#include "document/vrok_doc.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"
#include "g/button.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace editor {
namespace {

constexpr float kArrowSize = 7.0f;
constexpr float kFoldReach = 30.0f;
constexpr float kSameMove = 0.001f;
constexpr int kNoWindowHeight = 100;
constexpr G::Color kAudioOutline = 0xFF800000;
constexpr G::Color kControlOutline = 0xFF000080;

// Flattens one cubic into `out`, skipping its first point when `out` already ends there.
void AppendCubic(std::vector<G::FloatPoint>& out, G::FloatPoint p0, G::FloatPoint p1, G::FloatPoint p2,
                 G::FloatPoint p3) {
    const float length = std::hypot(p3.x - p0.x, p3.y - p0.y) + std::hypot(p1.x - p0.x, p1.y - p0.y) +
                         std::hypot(p3.x - p2.x, p3.y - p2.y);
    const int steps = std::clamp(int(length / 8.0f), 8, 64);
    for (int i = out.empty() ? 0 : 1; i <= steps; ++i)
        out.push_back(G::BezierPoint(p0, p1, p2, p3, float(i) / steps));
}

struct Cubic {
    G::FloatPoint p[4];
};

// One cubic when the source is left of the target, else two meeting at (mid x, midY).
std::vector<Cubic> WireCubics(G::FloatPoint s, G::FloatPoint t, float midY) {
    const G::FloatPoint m{(s.x + t.x) / 2.0f, midY};
    if (s.x < t.x) return {Cubic{{s, {m.x, s.y}, {m.x, t.y}, t}}};
    const float d = std::clamp(s.x + 10.0f - t.x, 0.0f, kFoldReach);
    return {Cubic{{s, {s.x + d, s.y}, {s.x + d, m.y}, m}}, Cubic{{m, {t.x - d, m.y}, {t.x - d, t.y}, t}}};
}

G::FloatPoint At(const Cubic& c, float t) { return G::BezierPoint(c.p[0], c.p[1], c.p[2], c.p[3], t); }

}  // namespace

G::Rect PointsExtent(const std::vector<G::FloatPoint>& points, int dx, int dy) {
    if (points.empty()) return G::Rect{};
    float x0 = points[0].x, x1 = x0, y0 = points[0].y, y1 = y0;
    for (const G::FloatPoint& p : points) {
        x0 = std::min(x0, p.x);
        x1 = std::max(x1, p.x);
        y0 = std::min(y0, p.y);
        y1 = std::max(y1, p.y);
    }
    const int left = int(std::floor(x0)) - dx;
    const int top = int(std::floor(y0)) - dy;
    return G::Rect{left, top, int(std::ceil(x1)) + dx - left + 1, int(std::ceil(y1)) + dy - top + 1};
}

std::vector<G::FloatPoint> PreviewCurve(G::FloatPoint source, G::FloatPoint target) {
    std::vector<G::FloatPoint> points;
    for (const Cubic& c : WireCubics(source, target, (source.y + target.y) / 2.0f))
        AppendCubic(points, c.p[0], c.p[1], c.p[2], c.p[3]);
    return points;
}

void LayOutWire(WireGeometry& wire, G::FloatPoint source, G::FloatPoint target, float midY) {
    wire.source = source;
    wire.target = target;
    wire.curve.clear();
    const std::vector<Cubic> cubics = WireCubics(source, target, midY);
    for (const Cubic& c : cubics) AppendCubic(wire.curve, c.p[0], c.p[1], c.p[2], c.p[3]);
    G::FloatPoint p, towards;
    if (cubics.size() == 1) {
        p = At(cubics[0], 0.5f);
        towards = At(cubics[0], 0.54f);
    } else {
        towards = At(cubics[0], 1.0f);
        p = towards;
        const G::FloatPoint before = At(cubics[0], 0.99f);
        towards = {p.x + (p.x - before.x), p.y + (p.y - before.y)};
    }
    float dx = towards.x - p.x;
    float dy = towards.y - p.y;
    const float length = std::hypot(dx, dy);
    if (length > 0) {
        dx /= length;
        dy /= length;
    } else {
        dx = 1;
        dy = 0;
    }
    wire.arrow[0] = {p.x + kArrowSize * dx, p.y + kArrowSize * dy};
    wire.arrow[1] = {p.x + kArrowSize * (-dx - dy), p.y + kArrowSize * (dx - dy)};
    wire.arrow[2] = {p.x + kArrowSize * (dy - dx), p.y + kArrowSize * (-dx - dy)};
    std::vector<G::FloatPoint> all = wire.curve;
    all.insert(all.end(), wire.arrow, wire.arrow + 3);
    wire.extent = PointsExtent(all, 4, 4);
}

VrokConnectionWindow::VrokConnectionWindow(VrokDocWindow* canvasWindow, PatchConnection* record)
    : G::Window(canvasWindow), connection(record), canvas(canvasWindow) {
    Attach(connection);
    visible = false;
    auto* button = new LittleVrokButton(this, this, 1, LittleVrokButton::kBox);
    AddChild(button);
    button->SetBounds(0, 0, 12, 12);
    bounds = G::Rect{0, 0, 12, 12};
}

VrokConnectionWindow::~VrokConnectionWindow() { Detach(connection); }

void VrokConnectionWindow::UpdateGeometry() {
    VrokBlockWindow* from = canvas->WindowOf(connection->fromBlock);
    VrokBlockWindow* to = canvas->WindowOf(connection->toBlock);
    if (!connection->connection || !from || !to) {
        Log(1, "Can not update connection position: connection was not initialized!");
        hasGeometry = false;
        return;
    }
    const CAudioBlock& a = *connection->fromBlock->block;
    const CAudioBlock& b = *connection->toBlock->block;
    const int input = connection->connection->toPort;
    const G::FloatPoint source{float(a.posX + from->Width() - 1), float(a.posY + 7)};
    const G::FloatPoint target{float(b.posX), float(b.posY + to->PortY(input))};
    geometry.audioInput = to->HasTriggerPort() && input == 0;
    const float dsx = source.x - geometry.source.x, dsy = source.y - geometry.source.y;
    const float dtx = target.x - geometry.target.x, dty = target.y - geometry.target.y;
    if (hasGeometry && std::abs(dsx - dtx) < kSameMove && std::abs(dsy - dty) < kSameMove) {
        if (dsx == 0 && dsy == 0) return;
        // Both ends moved together: shift the cached shape.
        for (G::FloatPoint& p : geometry.curve) p = {p.x + dsx, p.y + dsy};
        for (G::FloatPoint& p : geometry.arrow) p = {p.x + dsx, p.y + dsy};
        geometry.source = source;
        geometry.target = target;
        geometry.extent.x += int(std::lround(dsx));
        geometry.extent.y += int(std::lround(dsy));
    } else {
        const int upperHeight = a.posY <= b.posY ? from->Height() : to->Height();
        const float midY =
            ((upperHeight > 0 ? upperHeight : kNoWindowHeight) - 1 + source.y + target.y) / 2.0f;
        LayOutWire(geometry, source, target, midY);
        hasGeometry = true;
    }
    const int midX = int((source.x + target.x) / 2.0f);
    const int midYButton = int((source.y + target.y) / 2.0f) - 1;
    bounds.x = midX - 6 + canvas->scrollX;
    bounds.y = midYButton - 6 + canvas->scrollY;
}

void VrokConnectionWindow::Draw(G::Renderer& renderer) const {
    if (!hasGeometry) return;
    const G::Color main = G::theme::Palette(geometry.audioInput ? 16 : 22);
    const G::Color outline = geometry.audioInput ? kAudioOutline : kControlOutline;
    const int n = int(geometry.curve.size());
    renderer.DrawPolygon(G::Pen{outline, 2.0f}, geometry.arrow, 3);
    renderer.DrawPolyline(G::Pen{outline, 4.0f}, geometry.curve.data(), n);
    renderer.DrawPolyline(G::Pen{main, 2.0f}, geometry.curve.data(), n);
    renderer.FillPolygon(G::Brush::Solid(main), geometry.arrow, 3);
}

bool VrokConnectionWindow::ArrowContains(float x, float y) const {
    return hasGeometry && G::PointInTriangle({x, y}, geometry.arrow[0], geometry.arrow[1], geometry.arrow[2]);
}

void VrokConnectionWindow::OnCommand(int) { canvas->Disconnect(connection); }

void VrokConnectionWindow::StorableChanged(int, Storable*) {
    canvas->InvalidateWire(this);
    UpdateGeometry();
    canvas->InvalidateWire(this);
}

void VrokConnectionWindow::StorableRemoved(int, Storable*) {
    Detach(connection);
    canvas->ConnectionWindowGone(this);
    delete this;
}

}  // namespace editor
