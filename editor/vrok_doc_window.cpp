// VrokDocWindow: building windows for the document's objects, layout of scrolling, the list of
// dirty rects and the canvas paint. Gestures live in doc_window_gestures.cpp, clipboard in
// doc_window_clipboard.cpp, files in doc_window_files.cpp.
#include "editor/vrok_doc_window.h"

#include <algorithm>
#include <unordered_map>

#include "editor/block_gui_table.h"
#include "editor/focus_target.h"
#include "editor/global_gui.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_connection_window.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"
#include "g/root_control.h"
#include "g/scroller.h"
#include "g/theme.h"

namespace editor {
namespace {

constexpr int kCanvasSlack = 100;
constexpr int kScrollMargin = 25;
constexpr int kBandLift = 50;
constexpr G::Color kNoPathFrame = 0xFFFF0000;

bool Meets(const G::Rect& a, const G::Rect& b) {
    return a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h && b.y < a.y + a.h;
}

G::Rect Clipped(G::Rect r, int w, int h) {
    const int x1 = std::min(r.x + r.w, w);
    const int y1 = std::min(r.y + r.h, h);
    r.x = std::max(r.x, 0);
    r.y = std::max(r.y, 0);
    r.w = x1 - r.x;
    r.h = y1 - r.y;
    return r;
}

G::Color Mix(G::Color a, G::Color b, float t) {
    G::Color out = 0xFF000000u;
    for (int shift = 0; shift <= 16; shift += 8) {
        const float ca = float((a >> shift) & 0xFF);
        const float cb = float((b >> shift) & 0xFF);
        out |= G::Color(ca + (cb - ca) * t + 0.5f) << shift;
    }
    return out;
}

}  // namespace

struct VrokDocWindow::DrawRecord {
    VrokBlockWindow* window;
    G::Rect frame;  // window coordinates
    int state;      // 0 plain, 1 on a chain, 2 no path to an output, 3 selected
    bool shadow;
};

VrokDocWindow::VrokDocWindow(G::Control* parentControl, VrokDoc& document)
    : G::Window(parentControl), doc(document) {
    doc.AddWindow(this);
    doc.mainWindow = this;
    focusTarget = new FocusTarget(this);
    AddChild(focusTarget);
}

VrokDocWindow::~VrokDocWindow() {
    doc.RemoveWindow(this);
    if (doc.mainWindow == this) doc.mainWindow = nullptr;
    RemoveTimerClient(this);
    // The windows leave their records' listener lists as they go.
    for (VrokBlockWindow* w : std::vector<VrokBlockWindow*>(blockWindows)) delete w;
    for (VrokConnectionWindow* w : std::vector<VrokConnectionWindow*>(connectionWindows)) delete w;
    blockWindows.clear();
    connectionWindows.clear();
    selected.clear();
    canvas.reset();
}

void VrokDocWindow::Open() {
    visible = false;
    // In id order: blocks come before the wires that name them.
    std::vector<Storable*> existing;
    for (auto& [id, storable] : doc.objects) existing.push_back(storable);
    for (Storable* storable : existing) StorableAdded(storable);
    Show();
    UpdateConnectionGeometry();
    LayoutScrollers();
    AddTimerClient(this);
    Invalidate(nullptr);
    manual = HelpLibrary::LoadEmbedded();
}

// [SECTION] document view

void VrokDocWindow::StorableAdded(Storable* storable) {
    if (auto* patchBlock = dynamic_cast<PatchBlock*>(storable)) {
        MakeBlockWindow(patchBlock);
    } else if (auto* wire = dynamic_cast<PatchConnection*>(storable)) {
        MakeConnectionWindow(wire);
    } else if (auto* global = dynamic_cast<PatchGlobal*>(storable)) {
        if (globalAnnounced) globalAnnounced(global);
    }
}

void VrokDocWindow::DocumentChanged() {
    UpdateConnectionGeometry();
    LayoutScrollers();
    Invalidate(nullptr);
}

void VrokDocWindow::MakeBlockWindow(PatchBlock* patchBlock) {
    if (!patchBlock->block) {
        Log(1, "Can not create block GUI: audioblock was not initialized!");
        return;
    }
    if (WindowOf(patchBlock)) return;
    VrokBlockWindow* window = CreateBlockGui(this, patchBlock);
    AddChild(window);
    window->Build();
    window->SetPosition(patchBlock->block->posX + scrollX, patchBlock->block->posY + scrollY);
    window->BringToFront(false);
    if (vScroller) vScroller->BringToFront(false);
    if (hScroller) hScroller->BringToFront(false);
    blockWindows.push_back(window);
    InvalidateBlockArea(window);
    UpdateConnectionGeometry(patchBlock);
}

void VrokDocWindow::MakeConnectionWindow(PatchConnection* wire) {
    if (!wire->connection) return;  // a refused wire of a loaded file
    for (VrokConnectionWindow* w : connectionWindows)
        if (w->connection == wire) return;
    auto* window = new VrokConnectionWindow(this, wire);
    AddChild(window);
    connectionWindows.push_back(window);
    window->UpdateGeometry();
    InvalidateWire(window);
}

VrokBlockWindow* VrokDocWindow::WindowOf(const PatchBlock* patchBlock) const {
    if (!patchBlock) return nullptr;
    for (VrokBlockWindow* w : blockWindows)
        if (w->patchBlock == patchBlock) return w;
    return nullptr;
}

void VrokDocWindow::BlockWindowGone(VrokBlockWindow* window) {
    InvalidateBlockArea(window);
    std::erase(blockWindows, window);
    std::erase(selected, window);
    if (sourceWindow == window || targetWindow == window) CancelConnection();
}

void VrokDocWindow::ConnectionWindowGone(VrokConnectionWindow* window) {
    InvalidateWire(window);
    std::erase(connectionWindows, window);
}

void VrokDocWindow::UpdateConnectionGeometry(PatchBlock* patchBlock) {
    for (VrokConnectionWindow* wire : connectionWindows) {
        if (patchBlock && wire->connection->fromBlock != patchBlock &&
            wire->connection->toBlock != patchBlock)
            continue;
        InvalidateWire(wire);
        wire->UpdateGeometry();
        InvalidateWire(wire);
    }
}

// [SECTION] invalidation

void VrokDocWindow::Invalidate(const G::Rect* r) {
    if (!r) {
        dirtyRects.assign(kMaxDirtyRects, G::Rect{});
    } else if (int(dirtyRects.size()) < kMaxDirtyRects) {
        dirtyRects.push_back(*r);
    }
    G::Window::Invalidate(r);
}

void VrokDocWindow::InvalidateBlockArea(const VrokBlockWindow* window) {
    G::Rect area{window->bounds.x - 2, window->bounds.y - 2, window->bounds.w + 4, window->bounds.h + 4};
    G::ExpandForShadow(area);
    Invalidate(&area);
}

void VrokDocWindow::InvalidateWire(const VrokConnectionWindow* wire) {
    if (!wire->hasGeometry) return;
    G::Rect area = wire->geometry.extent;
    area.x += scrollX;
    area.y += scrollY;
    Invalidate(&area);
}

void VrokDocWindow::InvalidateSelection() {
    for (VrokBlockWindow* w : selected) InvalidateBlockArea(w);
}

// [SECTION] size and scrolling

void VrokDocWindow::SetSize(int w, int h) {
    G::Window::SetSize(w, h);
    LayoutScrollers();
}

void VrokDocWindow::OnResized(int w, int h) {
    G::Window::OnResized(w, h);
    if (focusTarget) focusTarget->SetBounds(0, 0, 1, 1);
}

void VrokDocWindow::PlaceWindows() {
    for (VrokBlockWindow* w : blockWindows) {
        if (CAudioBlock* block = w->patchBlock->block)
            w->SetPosition(block->posX + scrollX, block->posY + scrollY);
    }
    UpdateConnectionGeometry();
    Invalidate(nullptr);
}

void VrokDocWindow::LayoutScrollers() {
    int contentW = 0;
    int contentH = 0;
    for (VrokBlockWindow* w : blockWindows) {
        if (CAudioBlock* block = w->patchBlock->block) {
            contentW = std::max(contentW, block->posX + w->Width() - 1);
            contentH = std::max(contentH, block->posY + w->Height() - 1);
        }
    }
    scrollRangeX = std::min(0, bounds.w - contentW - kScrollMargin);
    scrollRangeY = std::min(0, bounds.h - contentH - kScrollMargin);
    bool moved = false;
    if (scrollX < scrollRangeX) scrollX = scrollRangeX, moved = true;
    if (scrollY < scrollRangeY) scrollY = scrollRangeY, moved = true;
    if (moved) PlaceWindows();

    const bool needV = contentH > bounds.h;
    const bool needH = contentW > bounds.w;
    if (needV) {
        vScrollPosition = std::clamp(float(-scrollY) / float(contentH - bounds.h), 0.0f, 1.0f);
        vScrollPage = 1.0f - float(contentH - bounds.h) / float(contentH);
    }
    if (needH) {
        hScrollPosition = std::clamp(float(-scrollX) / float(contentW - bounds.w), 0.0f, 1.0f);
        hScrollPage = 1.0f - float(contentW - bounds.w) / float(contentW);
    }
    if (needV != hasVScroller) SetVScroller(needV);
    // A horizontal scroller goes only once the view is back at the left edge.
    if (needH && !hasHScroller) SetHScroller(true);
    if (!needH && hasHScroller && scrollX == 0) SetHScroller(false);
    G::Window::LayoutScrollers();
    if (vScroller) vScroller->Invalidate(nullptr);
    if (hScroller) hScroller->Invalidate(nullptr);
}

bool VrokDocWindow::OnVScroll(int, int) {
    scrollY = int(float(scrollRangeY) * vScrollPosition);
    PlaceWindows();
    return true;
}

bool VrokDocWindow::OnHScroll(int, int) {
    scrollX = int(float(scrollRangeX) * hScrollPosition);
    PlaceWindows();
    return true;
}

// [SECTION] paint

void VrokDocWindow::CollectRecords(std::vector<DrawRecord>& records) {
    std::unordered_map<const CAudioBlock*, VrokBlockWindow*> bySlotBlock;
    for (VrokBlockWindow* w : blockWindows)
        if (w->patchBlock->block) bySlotBlock[w->patchBlock->block] = w;
    const size_t listed = dirtyRects.size();
    for (CAudioBlock* block : doc.engine->blocks) {
        if (!block) continue;
        auto found = bySlotBlock.find(block);
        if (found == bySlotBlock.end()) continue;
        VrokBlockWindow* w = found->second;
        int state = 0;
        if (w->selected) {
            state = 3;
        } else if (block->disconnected) {
            state = 2;
        } else if (block->connected) {
            state = 1;
        }
        G::Rect frame = w->bounds;
        if (state != 0) frame = G::Rect{frame.x - 2, frame.y - 2, frame.w + 3, frame.h + 3};
        const bool shadow = !(w->selected && draggingSelection);
        G::Rect area = frame;
        if (shadow) G::ExpandForShadow(area);
        bool meets = false;
        for (size_t i = 0; i < listed && !meets; ++i) meets = Meets(area, dirtyRects[i]);
        if (!meets) continue;
        records.push_back({w, frame, state, shadow});
        // Whatever overlaps a redrawn block is redrawn in full.
        dirtyRects.push_back(area);
    }
}

bool VrokDocWindow::OnDraw(G::Renderer& target, G::Rect) {
    const int w = bounds.w;
    const int h = bounds.h;
    if (!canvas || canvas->width < w + kCanvasSlack || canvas->height < h + kCanvasSlack) {
        canvas = std::make_unique<G::Bitmap>(w + kCanvasSlack, h + kCanvasSlack, 3);
    }
    G::Renderer r(*canvas);
    if (dirtyRects.empty() || int(dirtyRects.size()) >= kMaxDirtyRects)
        dirtyRects.assign(1, G::Rect{0, 0, w, h});

    std::vector<DrawRecord> records;
    CollectRecords(records);
    for (G::Rect& rect : dirtyRects) rect = Clipped(rect, w, h);

    const G::Color top = G::theme::Palette(2);
    const G::Color bottom = G::theme::Palette(3);
    const float span = float(std::max(1, h - 1));
    for (const G::Rect& rect : dirtyRects) {
        for (int y = rect.y; y < rect.y + rect.h; ++y)
            r.DrawHLine(rect.x, rect.x + rect.w - 1, y, Mix(top, bottom, y / span));
    }

    r.SetView(1.0, scrollX, scrollY);
    if (blockWindows.size() < 2 || (blockWindows.size() == 2 && connectionWindows.empty())) {
        const char* hint = blockWindows.size() < 2
                               ? "Please right-click the screen to add a block!"
                               : "Please connect the 2 blocks by clicking on 2 connection arrows!";
        r.DrawText(std::string_view(hint), G::Rect{-scrollX, -scrollY, w - 4, 16}, G::theme::NormalFont(),
                   G::TextAlign{0, 1}, G::theme::Palette(G::theme::kTextColor));
    }
    for (const VrokConnectionWindow* wire : connectionWindows) {
        if (!wire->hasGeometry) continue;
        G::Rect extent = wire->geometry.extent;
        extent.x += scrollX;
        extent.y += scrollY;
        for (const G::Rect& rect : dirtyRects) {
            if (Meets(extent, rect)) {
                wire->Draw(r);
                break;
            }
        }
    }
    if (connecting) DrawConnectionPreview(r);

    for (const DrawRecord& record : records) {
        const G::Rect& b = record.window->bounds;
        if (record.shadow) shadows.Draw(r, b.x - scrollX, b.y - scrollY, b.w, b.h);
        if (record.state == 0) continue;
        const G::Color frame = record.state == 1   ? G::theme::Palette(20)
                               : record.state == 2 ? kNoPathFrame
                                                   : G::theme::Palette(G::theme::kAccent);
        r.FillRect(G::Brush::Solid(frame),
                   G::FloatRect{float(record.frame.x - scrollX), float(record.frame.y - scrollY),
                                float(record.frame.w), float(record.frame.h)});
    }

    if (bandActive) {
        r.SetView(1.0, 0, 0);
        const G::Rect band = BandRect();
        const G::Color accent = G::theme::Palette(G::theme::kAccent);
        const G::Color light = (G::Brighten(accent, kBandLift) & 0x00FFFFFF) | 0x46000000;
        const G::FloatRect area{float(band.x), float(band.y), float(band.w), float(band.h)};
        r.FillRect(G::Brush::Gradient({area.x, area.y}, {area.x, area.y + std::max(1.0f, area.h)},
                                      {{0.0f, light}, {1.0f, (accent & 0x00FFFFFF) | 0x46000000}}),
                   area);
        r.StrokeRect(G::Pen{accent, 1.0f},
                     G::FloatRect{area.x + 0.5f, area.y + 0.5f, area.w - 1, area.h - 1});
    }

    for (const G::Rect& rect : dirtyRects) {
        if (!rect.IsEmpty()) target.BlitBitmap(*canvas, rect, rect.x, rect.y);
    }
    dirtyRects.clear();
    return true;
}

G::Rect VrokDocWindow::BandRect() const {
    int x0 = bandStartX, y0 = bandStartY, x1 = bandX, y1 = bandY;
    GlobalToLocal(x0, y0);
    GlobalToLocal(x1, y1);
    return G::Rect{std::min(x0, x1), std::min(y0, y1), std::abs(x1 - x0), std::abs(y1 - y0)};
}

std::vector<G::FloatPoint> VrokDocWindow::PreviewPoints() const {
    G::FloatPoint source{float(previewX - scrollX), float(previewY - scrollY)};
    G::FloatPoint target = source;
    if (connectionSource && sourceWindow) {
        const CAudioBlock* a = connectionSource->block;
        source = {float(a->posX + sourceWindow->Width() - 1), float(a->posY + 7)};
    }
    if (connectionTarget && targetWindow) {
        const CAudioBlock* b = connectionTarget->block;
        target = {float(b->posX), float(b->posY + targetWindow->PortY(targetInput))};
    }
    return PreviewCurve(source, target);
}

void VrokDocWindow::DrawConnectionPreview(G::Renderer& r) {
    const std::vector<G::FloatPoint> points = PreviewPoints();
    r.DrawPolyline(G::Pen{0xFF609D14, 4.0f}, points.data(), int(points.size()));
    r.DrawPolyline(G::Pen{0xFFC2FF7F, 2.0f}, points.data(), int(points.size()));
}

void VrokDocWindow::OnTimer(int) {
    // Values can change behind the widgets' back: host knobs and automation.
    for (VrokBlockWindow* w : blockWindows) w->RefreshChangedValues();
}

G::NativeWindow* VrokDocWindow::Native() const {
    auto* root = dynamic_cast<G::RootControl*>(const_cast<VrokDocWindow*>(this)->Root());
    return root ? root->native.get() : nullptr;
}

void VrokDocWindow::PointerInCanvas(int& x, int& y) const {
    x = 0;
    y = 0;
    if (G::NativeWindow* native = Native()) {
        x = native->mouseX;
        y = native->mouseY;
    }
    GlobalToLocal(x, y);
}

}  // namespace editor
