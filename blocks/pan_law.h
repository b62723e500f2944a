// The equal-power pan law shared by the stereo input and the panning output: a pan value
// 0..1 becomes an angle 0..~pi/2, and the gains are cos^2 and sin^2 of it, so they sum to 1.
#pragma once

struct PanGains {
    float left;
    float right;
};

// Pan value 0..1 to the angle the gains are taken at. The constant is a hair under pi/2,
// so a hard pan leaves about 2.3e-9 on the far side; stored patches sound that way.
inline float PanAngle(float pan) { return pan * 1.57075f; }

// left = cos^2(theta), right = sin^2(theta), with theta quantised to 2^20 steps per turn.
// Sine and cosine come from a coarse and a fine table of 1024 pairs joined by the
// angle-sum rule, so this is cheap enough to run per sample. Safe on the audio thread.
PanGains PanGainsForAngle(float theta);
inline PanGains PanGainsForValue(float pan) { return PanGainsForAngle(PanAngle(pan)); }
