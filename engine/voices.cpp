// Keys to voices: allocation without stealing, legato in monophonic mode, glides, bend.
// A voice is only a row index shared by all blocks; its state is the arrays below.
#include <algorithm>
#include <cmath>

#include "engine/log.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"
#include "fx/arpeggiator.h"

namespace {
bool HasKeyState(int note) { return note >= 0 && note < kNumNotes; }
}  // namespace

void VrokInstance::PressKey(int note, int velocity) {
    std::lock_guard guard(lock);
    if (arpeggiatorActive && arpeggiator) {
        // Velocity stops here: the arpeggiator plays at its own.
        if (!arpeggiator->IsHeld(note)) arpeggiator->AddNote(note);
        return;
    }
    NoteOnInternal(note, velocity, false);
}

void VrokInstance::ReleaseKey(int note) {
    std::lock_guard guard(lock);
    if (arpeggiatorActive && arpeggiator) {
        arpeggiator->NoteOff(note);
        return;
    }
    NoteOffInternal(note);
}

void VrokInstance::NoteOnInternal(int note, int velocity, bool returning) {
    std::lock_guard guard(lock);
    if (!returning) {
        if (int(heldNotes.size()) == kMaxHeldNotes) heldNotes.erase(heldNotes.begin());
        heldNotes.push_back(note);
    }
    if (monophonic) {
        // Legato: a new key while voice 0 sounds only moves its pitch.
        StartVoice(0, note, velocity, !voiceActive[0] && !returning);
    } else {
        const int cursor = voiceCursor.load(std::memory_order_relaxed);
        auto voiceAt = [&](int step) { return (cursor + 1 + step) % numVoices; };
        int chosen = -1;
        // A note already sounding restarts on its own voice.
        for (int i = 0; i < numVoices && chosen < 0; ++i)
            if (voiceNote[voiceAt(i)] == note && voiceActive[voiceAt(i)]) chosen = voiceAt(i);
        // Then a voice that last played this note, even in its release.
        for (int i = 0; i < numVoices && chosen < 0; ++i)
            if (voiceNote[voiceAt(i)] == note) chosen = voiceAt(i);
        // Then any free voice; with none, the note is dropped: voices are never stolen.
        for (int k = 0; k <= numVoices && chosen < 0; ++k) {
            if (!voiceActive[voiceAt(k)]) {
                chosen = voiceAt(k);
                voiceCursor.store(chosen, std::memory_order_relaxed);
            }
        }
        if (chosen < 0) return;
        StartVoice(chosen, note, velocity, true);
    }
    if (HasKeyState(note)) {
        noteHeld[note] = 1;
        noteVelocity[note] = velocity;
    } else {
        Log(1, "help!");
    }
}

void VrokInstance::StartVoice(int voice, int note, int velocity, bool retrigger) {
    voiceCursor.store(voice, std::memory_order_relaxed);
    voiceNote[voice] = note;
    voiceActive[voice] = 1;
    voiceVelocity[voice] = float(velocity);
    if (!portamentoOn) {
        voicePitch[voice] = float(note);
        const float pitch = bend * bendRange + float(note) + transpose;
        for (int k = 0; k < orderCount; ++k) blocks[order[k]]->SetNote(pitch, float(velocity), voice);
    } else {
        // The first pitch goes out from AdvanceGlides; glides start at the last note played
        // on any voice, not at this voice's own pitch.
        portamentoFrom[voice] = float(lastNote);
        voicePitch[voice] = float(lastNote);
        targetNote[voice] = note;
        portamentoPosition[voice] = 0.0f;
    }
    if (retrigger)
        for (int k = 0; k < orderCount; ++k) blocks[order[k]]->NoteOn(velocity, voice);
    lastNote = note;
}

void VrokInstance::NoteOffInternal(int note) {
    std::lock_guard guard(lock);
    if (HasKeyState(note)) noteHeld[note] = 0;
    heldNotes.erase(std::remove(heldNotes.begin(), heldNotes.end(), note), heldNotes.end());
    if (monophonic && !heldNotes.empty()) {
        // The line returns to the latest key still down, without a new attack. A key
        // without key state (note 128 and up) returns at the voice's own velocity.
        const int back = heldNotes.back();
        const int velocity = HasKeyState(back) ? noteVelocity[back] : int(voiceVelocity[0]);
        NoteOnInternal(back, velocity, true);
        return;
    }
    for (int v = 0; v < kMaxVoices; ++v) {
        if (!voiceActive[v] || voiceNote[v] != note) continue;
        for (int k = 0; k < orderCount; ++k) blocks[order[k]]->NoteOff(v);
        voiceActive[v] = 0;
    }
}

void VrokInstance::AllNotesOff() {
    for (int note = 0; note < kNumNotes; ++note) ReleaseKey(note);
}

void VrokInstance::AllSoundOff() {
    std::lock_guard guard(lock);
    AllNotesOff();
    for (int k = 0; k < orderCount; ++k) blocks[order[k]]->Reset();
    std::fill(std::begin(voiceActive), std::end(voiceActive), uint8_t(0));
    // Reset is what a block gets when it leaves the chain, and some blocks (the scopes)
    // change their polyphony there; the walk puts every flag back. It allocates nothing.
    RebuildOrder();
}

void VrokInstance::SetVoiceCount(int count, bool isMonophonic) {
    std::lock_guard guard(lock);
    // Only a single voice can be monophonic.
    count = std::clamp(count, 1, kMaxVoices);
    if (count >= 2) isMonophonic = false;
    AllNotesOff();
    numVoices = count;
    monophonic = isMonophonic;
}

void VrokInstance::SetArpeggiatorActive(bool on) {
    std::lock_guard guard(lock);
    if (on == arpeggiatorActive) return;
    for (int note = 0; note < kNumNotes; ++note) NoteOffInternal(note);
    arpeggiatorActive = on;
}

void VrokInstance::SetPortamento(float value) {
    std::lock_guard guard(lock);
    std::fill(std::begin(portamentoPosition), std::end(portamentoPosition), 1.0f);
    value = Clamp01(value);
    if (value > 0.0f) {
        portamentoOn = true;
        // The envelopes' length curve, at the engine's own rate.
        portamentoLength = float(EnvelopeLengthSamples(value, sampleRate));
        portamentoRate = 1.0f / portamentoLength;
    } else {
        portamentoOn = false;
        for (int v = 0; v < kMaxVoices; ++v) voicePitch[v] = float(targetNote[v]);
        SendPitches();
    }
}

void VrokInstance::SetBend(float value) {
    std::lock_guard guard(lock);
    if (std::isfinite(value)) bend = value;
    SendPitches();
}

void VrokInstance::SendPitches() {
    for (int k = 0; k < orderCount; ++k) {
        CAudioBlock& b = *blocks[order[k]];
        for (int v = 0; v < numVoices; ++v) b.SetNote(VoicePitchWithBend(v), voiceVelocity[v], v);
    }
}

void VrokInstance::AdvanceGlides(int numSamples) {
    std::lock_guard guard(lock);
    for (int v = 0; v < numVoices; ++v) {
        if (portamentoPosition[v] >= 1.0f) continue;
        // Linear in note numbers, one step per sample block.
        float position = std::min(portamentoPosition[v] + float(numSamples) * portamentoRate, 1.0f);
        portamentoPosition[v] = position;
        voicePitch[v] = (1.0f - position) * portamentoFrom[v] + float(targetNote[v]) * position;
        const float pitch = VoicePitchWithBend(v);
        for (int k = 0; k < orderCount; ++k) blocks[order[k]]->SetNote(pitch, voiceVelocity[v], v);
    }
}
