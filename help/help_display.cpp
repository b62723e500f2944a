// HelpDisplay: layout, painting, scrolling, links and history.
#include "help/help_display.h"

#include <algorithm>

#include "g/renderer.h"
#include "g/scroller.h"

namespace {

constexpr G::Color kPaper = 0xFFFAF8F2;
constexpr G::Color kEdge = 0xFF999F9D;
constexpr G::Color kRule = 0xFFC9CED6;
constexpr G::Color kLinkHover = 0xFF963200;

}  // namespace

HelpDisplay::HelpDisplay(G::Control* parentControl, const HelpLibrary& helpLibrary)
    : G::Window(parentControl), library(&helpLibrary) {
    SetVScroller(true);
}

void HelpDisplay::SetLibrary(const HelpLibrary& helpLibrary) {
    library = &helpLibrary;
    history.clear();
    position = -1;
    ShowAt(0);
}

const HelpArticle* HelpDisplay::Current() const {
    return position >= 0 ? history[static_cast<size_t>(position)].article : nullptr;
}

bool HelpDisplay::Navigate(std::string_view key) { return Go(library->Find(key)); }

bool HelpDisplay::ShowBlock(std::string_view displayName, int type) {
    return !locked && Go(library->FindBlock(displayName, type));
}

bool HelpDisplay::Go(const HelpArticle* article) {
    if (!article) return false;
    if (article != Current()) {
        if (position >= 0) history[static_cast<size_t>(position)].scrollTop = scrollTop;
        history.resize(static_cast<size_t>(position + 1));
        history.push_back({article, 0});
        ++position;
        ShowAt(0);
    }
    return true;
}

bool HelpDisplay::Back() {
    if (!CanGoBack()) return false;
    history[static_cast<size_t>(position)].scrollTop = scrollTop;
    --position;
    ShowAt(history[static_cast<size_t>(position)].scrollTop);
    return true;
}

bool HelpDisplay::Forward() {
    if (!CanGoForward()) return false;
    history[static_cast<size_t>(position)].scrollTop = scrollTop;
    ++position;
    ShowAt(history[static_cast<size_t>(position)].scrollTop);
    return true;
}

void HelpDisplay::SetLocked(bool on) {
    locked = on;
    Changed();
}

void HelpDisplay::ShowAt(float top) {
    hoverLink = -1;
    Relayout();
    ScrollTo(top);
    Changed();
}

void HelpDisplay::Changed() {
    Invalidate(nullptr);
    if (onChanged) onChanged();
}

float HelpDisplay::TextWidth() const {
    return static_cast<float>(std::max(1, bounds.w - 2 * kMargin - G::Scroller::kThickness));
}

void HelpDisplay::Relayout() {
    const HelpArticle* article = Current();
    layout =
        article ? LayOutItems(article->items, TextWidth(), FontMetrics(library->Styles())) : TextLayout{};
}

float HelpDisplay::MaxScroll() const {
    return std::max(0.0f, layout.height + 2 * kMargin - static_cast<float>(bounds.h));
}

void HelpDisplay::ScrollTo(float top) {
    scrollTop = std::clamp(top, 0.0f, MaxScroll());
    UpdateScroller();
    Invalidate(nullptr);
}

void HelpDisplay::UpdateScroller() {
    const float content = layout.height + 2 * kMargin;
    const float max = MaxScroll();
    vScrollPage = max > 0 ? static_cast<float>(bounds.h) / content : 1.0f;
    vScrollPosition = max > 0 ? scrollTop / max : 0.0f;
    if (vScroller) {
        vScroller->UpdateThumb();
        vScroller->Invalidate(nullptr);
    }
}

bool HelpDisplay::LinkPoint(int link, int& x, int& y) const {
    for (const TextRun& run : layout.runs) {
        if (run.link != link) continue;
        x = static_cast<int>(kMargin + run.x + run.width / 2);
        y = static_cast<int>(kMargin + run.y + run.height / 2 - scrollTop);
        return true;
    }
    return false;
}

int HelpDisplay::LinkUnder(int x, int y) const {
    return layout.LinkAt(static_cast<float>(x - kMargin), static_cast<float>(y - kMargin) + scrollTop);
}

void HelpDisplay::DrawBackground(G::Renderer& renderer, const G::Rect&) {
    renderer.FillRect(G::Brush::Solid(kPaper), G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
}

bool HelpDisplay::OnDraw(G::Renderer& renderer, G::Rect) {
    DrawBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.DrawLine(G::Pen{kEdge, 1.0f}, 0.5f, 0, 0.5f, float(bounds.h));
    const LayoutSet& set = library->Styles();
    const float top = kMargin - scrollTop;
    for (const TextLine& line : layout.lines) {
        const float y = top + line.y;
        if (y + line.height < 0 || y > bounds.h) continue;
        if (line.heading == kStyleHeading)
            renderer.DrawLine(G::Pen{kRule, 1.0f}, float(kMargin), y + line.height - 0.5f,
                              kMargin + TextWidth(), y + line.height - 0.5f);
        for (int r = line.firstRun; r < line.endRun; ++r) {
            const TextRun& run = layout.runs[static_cast<size_t>(r)];
            const G::LayoutStyle& style = set.styles[static_cast<size_t>(run.style)];
            const G::Color ink = run.link >= 0 && run.link == hoverLink ? kLinkHover : style.color;
            const float x = kMargin + run.x;
            // The renderer insets text by 2.5 pixels; the run's box starts where its glyphs do.
            renderer.DrawText(std::wstring_view(run.text),
                              G::FloatRect{x - 2.5f, y + 1.5f, run.width + 5, run.height}, style.font,
                              G::TextAlign{0, 1}, ink);
            if (run.link < 0) continue;
            // The underline runs on under the space to the link's next word on the line.
            const bool joined =
                r + 1 < line.endRun && layout.runs[static_cast<size_t>(r + 1)].link == run.link;
            const float end = joined ? kMargin + layout.runs[static_cast<size_t>(r + 1)].x : x + run.width;
            renderer.DrawLine(G::Pen{ink, 1.0f}, x, y + run.height - 2.5f, end, y + run.height - 2.5f);
        }
    }
    return true;
}

bool HelpDisplay::OnLeftDown(int x, int y) {
    const int link = LinkUnder(x, y);
    const HelpArticle* article = Current();
    if (link < 0 || !article) return true;
    Navigate(article->links[static_cast<size_t>(link)].href);
    return true;
}

bool HelpDisplay::OnMouseMove(int x, int y) {
    const int link = LinkUnder(x, y);
    if (link != hoverLink) {
        hoverLink = link;
        Invalidate(nullptr);
    }
    return true;
}

bool HelpDisplay::OnMouseLeave(int, int) {
    if (hoverLink >= 0) {
        hoverLink = -1;
        Invalidate(nullptr);
    }
    return false;
}

bool HelpDisplay::OnWheel(int notches) {
    ScrollTo(scrollTop - notches * kWheelStep);
    return true;
}

bool HelpDisplay::OnVScroll(int, int) {
    scrollTop = vScrollPosition * MaxScroll();
    Invalidate(nullptr);
    return true;
}

void HelpDisplay::OnResized(int w, int h) {
    G::Window::OnResized(w, h);
    Relayout();
    ScrollTo(scrollTop);
}
