// G::ParameterPitch: a transposition of -12..+12 semitones stored around value 0.5. The
// horizontal form has three parts side by side: a piano strip dragged across for semitones,
// the text dragged up and down for a fine change, and a small knob for the cents. The
// vertical form drags the whole value only.
#pragma once

#include <string>

#include "g/control.h"
#include "g/parameter_sender.h"

namespace G {

class ParameterPitch : public CustomControl, public ParameterSender {
public:
    enum Part { kPiano = 0, kText = 1, kCents = 2 };
    static constexpr float kRangeSemitones = 24.0f;
    static constexpr int kPianoWidth = 45;
    static constexpr int kPianoHeight = 9;
    static constexpr int kCentsKnobSize = 15;

    // `listener` may be null; the index sent is the id field.
    ParameterPitch(Control* parent, FloatParamListener* listener, int index, float value,
                   bool vertical = false);

    // Clamps to 0..1, stores without telling the listener and invalidates.
    void SetValue(float v);
    float Value() const { return value; }
    float Semitones() const { return pitch; }
    // The nearest whole semitone below or at the pitch, and the rest in -0.5..0.5; a rest of
    // exactly +0.5 stays with the lower semitone.
    float IntegerSemitones() const { return integer; }
    float Cents() const { return cents; }
    // The part a press at local x edits.
    int PartAt(int x) const;

    // "+%2.2f" or "-%2.2f" of the magnitude, and "+0" for anything within 0.01 of zero.
    static std::string PitchText(float semitones);

    bool OnDraw(Renderer& renderer, Rect clip) override;
    // Ctrl+press zeroes the part under the pointer (the whole value when vertical) in one
    // gesture; a plain press starts a drag of that part.
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;
    bool OnWheel(int notches) override;
    // Left and right by a cent of a semitone, up and down by a semitone (up lowers).
    bool OnKeyDown(int key) override;
    bool OnFocusChanged(bool gained) override;

    int dragPart = kPiano;
    bool vertical;
    bool dragging = false;
    int dragStartX = 0;
    int dragStartY = 0;
    float dragStartValue = 0;
    float dragStartInteger = 0;
    float dragStartCents = 0;

private:
    void Split();
    // Value from integer and cents, clamped, then split again.
    void Recombine();
    // Clamps, splits, invalidates and tells the listener.
    void MoveTo(float v);
    Rect PartRect(int part) const;
    void DrawPiano(Renderer& renderer, int top);

    float value = 0.5f;
    float pitch = 0;
    float integer = 0;
    float cents = 0;
};

}  // namespace G
