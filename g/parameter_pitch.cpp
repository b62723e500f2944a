// G::ParameterPitch: the semitone and cent split, the three drag parts and the piano face.
#include "g/parameter_pitch.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "g/keys.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G {
namespace {

constexpr float kFineStep = 1.0f / 2400.0f;  // a cent of a semitone, as a value
constexpr float kSemitoneStep = 1.0f / 24.0f;
constexpr float kWheelStep = 0.005f;
constexpr int kTextPartStart = 47;  // a press right of this edits the text part
constexpr int kCentsPartWidth = 16;
constexpr int kTextRight = 63;  // the text box starts this far from the right edge
constexpr int kKeyPitch = 3;
constexpr int kWhiteSlots = 16;
constexpr int kBlackKeyHeight = 5;
constexpr Color kSeparator = 0xFFB2B2B2;

// Two octaves and one key, from 12 semitones down to 12 up.
constexpr bool kIsBlack[25] = {false, true,  false, true,  false, false, true, false, true,
                               false, true,  false, false, true,  false, true, false, false,
                               true,  false, true,  false, true,  false, false};
constexpr int kWhiteIndex[25] = {0, 0, 1, 1, 2,  3,  3,  4,  4,  5,  5,  6, 7,
                                 7, 8, 8, 9, 10, 10, 11, 11, 12, 12, 13, 14};
constexpr int kKeyX[25] = {2,  3,  5,  7,  8,  11, 12, 14, 15, 17, 19, 20, 23,
                           24, 26, 28, 29, 32, 33, 35, 36, 38, 40, 41, 44};

}  // namespace

ParameterPitch::ParameterPitch(Control* parentControl, FloatParamListener* paramListener, int index,
                               float initial, bool isVertical)
    : CustomControl(parentControl), ParameterSender(paramListener), vertical(isVertical) {
    id = index;
    value = ClampUnit(initial);
    Split();
}

std::string ParameterPitch::PitchText(float semitones) {
    if (!(std::fabs(semitones) >= 0.01f)) return "+0";
    char text[32];
    std::snprintf(text, sizeof text, semitones >= 0 ? "+%2.2f" : "-%2.2f", std::fabs(semitones));
    return text;
}

void ParameterPitch::Split() {
    pitch = (value - 0.5f) * kRangeSemitones;
    integer = std::floor(pitch);
    cents = pitch - integer;
    if (cents > 0.5f) {
        integer += 1.0f;
        cents -= 1.0f;
    }
}

void ParameterPitch::Recombine() {
    value = ClampUnit((integer + cents) / kRangeSemitones + 0.5f);
    Split();
}

void ParameterPitch::SetValue(float v) {
    value = ClampUnit(v);
    Split();
    Invalidate(nullptr);
}

void ParameterPitch::MoveTo(float v) {
    value = ClampUnit(v);
    Split();
    Invalidate(nullptr);
    SendValue(id, value);
}

int ParameterPitch::PartAt(int x) const {
    if (vertical) return kPiano;
    if (x > bounds.w - kCentsPartWidth) return kCents;
    if (x > kTextPartStart) return kText;
    return kPiano;
}

bool ParameterPitch::OnLeftDown(int x, int y) {
    SetFocus();
    dragPart = PartAt(x);
    if (IsCtrlDown()) {
        SendBegin(id);
        if (vertical) {
            value = 0.5f;
            Split();
        } else {
            if (dragPart == kPiano || dragPart == kText) integer = 0;
            if (dragPart == kText || dragPart == kCents) cents = 0;
            Recombine();
        }
        SendValue(id, value);
        SendEnd(id);
        Invalidate(nullptr);
        return true;
    }
    CaptureMouse();
    dragging = true;
    dragStartX = x;
    dragStartY = y;
    dragStartValue = value;
    dragStartInteger = integer;
    dragStartCents = cents;
    SendBegin(id);
    Invalidate(nullptr);
    return true;
}

bool ParameterPitch::OnMouseMove(int x, int y) {
    if (!dragging) return false;
    const float dx = static_cast<float>(x - dragStartX);
    const float dy = static_cast<float>(y - dragStartY);
    if (vertical) {
        MoveTo(dragStartValue + (dx / 3.0f) / 2400.0f - dy / 2400.0f);
        return true;
    }
    // The part not being dragged keeps its value from the start of the drag, so the result
    // depends only on how far the mouse is from where it was pressed.
    switch (dragPart) {
        case kPiano:
            integer = std::clamp(dragStartInteger + dx * 0.1f, -12.0f, 12.0f);
            cents = dragStartCents;
            Recombine();
            break;
        case kCents:
            integer = dragStartInteger;
            cents = std::clamp(dragStartCents - dy * 0.01f, -0.5f, 0.5f);
            Recombine();
            break;
        default:
            value = ClampUnit(dragStartValue - dy / 2400.0f);
            Split();
            break;
    }
    Invalidate(nullptr);
    SendValue(id, value);
    return true;
}

bool ParameterPitch::OnLeftUp(int, int) {
    if (dragging) {
        SendEnd(id);
        ReleaseMouse();
        dragging = false;
    }
    return true;
}

bool ParameterPitch::OnWheel(int notches) {
    MoveTo(value + notches * kWheelStep);
    return true;
}

bool ParameterPitch::OnKeyDown(int keyCode) {
    switch (keyCode) {
        case key::kLeft:
            MoveTo(value - kFineStep);
            return true;
        case key::kRight:
            MoveTo(value + kFineStep);
            return true;
        case key::kUp:
            MoveTo(value - kSemitoneStep);
            return true;
        case key::kDown:
            MoveTo(value + kSemitoneStep);
            return true;
        default:
            return false;
    }
}

bool ParameterPitch::OnFocusChanged(bool) {
    Invalidate(nullptr);
    return true;
}

Rect ParameterPitch::PartRect(int part) const {
    if (vertical) return Rect{0, 0, bounds.w, bounds.h};
    switch (part) {
        case kCents:
            return Rect{bounds.w - kCentsPartWidth, 0, kCentsPartWidth, bounds.h};
        case kText:
            return Rect{kTextPartStart + 1, 0, bounds.w - kCentsPartWidth - kTextPartStart - 1, bounds.h};
        default:
            return Rect{0, 0, kTextPartStart + 1, bounds.h};
    }
}

void ParameterPitch::DrawPiano(Renderer& renderer, int top) {
    const float y0 = static_cast<float>(top);
    renderer.FillRect(Brush::Solid(0xFFFFFFFF),
                      FloatRect{0, y0, static_cast<float>(kPianoWidth), kPianoHeight});
    const Pen separator{kSeparator, 1.0f};
    const Pen black{0xFF000000, 1.0f};
    for (int slot = 0; slot < kWhiteSlots; ++slot) {
        float x = slot * kKeyPitch + 0.5f;
        renderer.DrawLine(separator, x, y0, x, y0 + kPianoHeight);
        // No black key between E and F, B and C, or at either end.
        if (slot % 7 == 0 || slot % 7 == 3 || slot == kWhiteSlots - 1) continue;
        for (int dx = -1; dx <= 1; ++dx) {
            renderer.DrawLine(black, x + dx, y0, x + dx, y0 + kBlackKeyHeight);
        }
    }
    int semitone = std::clamp(static_cast<int>(integer), -12, 12);
    int key = (semitone + 37) % 25;
    float keyX = kKeyX[key] + 0.5f;
    const Pen mark{theme::Palette(colorIndex), 1.0f};
    if (kIsBlack[key]) {
        for (int dx = -1; dx <= 1; ++dx) {
            renderer.DrawLine(mark, keyX + dx, y0, keyX + dx, y0 + kBlackKeyHeight);
        }
    } else {
        // The two columns of the white key, below the black keys beside it.
        float left = kWhiteIndex[key] * kKeyPitch + 1.5f;
        for (int dx = 0; dx <= 1; ++dx) {
            renderer.DrawLine(mark, left + dx, y0 + kBlackKeyHeight, left + dx, y0 + kPianoHeight);
        }
    }
    FloatPoint above[3] = {{keyX - 2.5f, y0 - 3.0f}, {keyX + 2.5f, y0 - 3.0f}, {keyX, y0}};
    FloatPoint below[3] = {{keyX - 2.5f, y0 + kPianoHeight + 3.0f},
                           {keyX + 2.5f, y0 + kPianoHeight + 3.0f},
                           {keyX, y0 + kPianoHeight}};
    renderer.FillPolygon(Brush::Solid(0xFF000000), above, 3);
    renderer.FillPolygon(Brush::Solid(0xFF000000), below, 3);
}

bool ParameterPitch::OnDraw(Renderer& renderer, Rect) {
    const int w = bounds.w;
    const int h = bounds.h;
    PaintUnderlay(renderer, theme::Palette(1));
    DrawPiano(renderer, (h - kPianoHeight) / 2);
    float knobTop = static_cast<float>((h - kCentsKnobSize) / 2);
    FloatRect knob{w - kCentsKnobSize + 0.5f, knobTop + 0.5f, kCentsKnobSize - 1.0f, kCentsKnobSize - 1.0f};
    DrawSmallKnobFace(renderer, knob, cents + 0.5f, ParameterKnob::kModeBipolar, theme::Palette(colorIndex));
    renderer.DrawText(std::string_view(PitchText(pitch)),
                      Rect{w - kTextRight, 0, kTextRight - kCentsKnobSize - 4, h}, theme::NormalFont(),
                      TextAlign{2, 1}, theme::Palette(theme::kTextColor));
    if (HasFocus()) {
        Rect part = PartRect(dragPart);
        renderer.StrokeRect(Pen{theme::Palette(theme::kAccent), 1.0f},
                            FloatRect{part.x + 0.5f, 0.5f, part.w - 1.0f, h - 1.0f});
    }
    return true;
}

}  // namespace G
