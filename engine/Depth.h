// SPDX-License-Identifier: MIT
#ifndef TOLVANEV_ENGINE_DEPTH_H
#define TOLVANEV_ENGINE_DEPTH_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace engine {

// How far noise is to be lowered: all the way if it is steady and loud; less if it is soft, since
// words suffer more from suppression than from soft noise; least if nothing steady is heard. Then
// it is voices, and what is left of them sounds like words. Steady is what stays at the same level
// for 300 ms in each of four bands. The suppressor shows it the spectrum of each frame.
class Depth {
  public:
    static constexpr size_t BINS = 160;  // of 50 Hz

    // The most and the least that noise is lowered, in dB, neither above 0.
    Depth(int most_db, int least_db);

    // The power spectrum of the next frame, as the suppressor measures it.
    void follow(std::span<const int32_t, BINS> spectrum);

    // The latest frames were steady noise, as is known otherwise. It has to prove so within a
    // second.
    void know();

    // For the next frame.
    int decibels() const;

    // A stream begins.
    void reset();

  private:
    static constexpr size_t BANDS = 4;
    static constexpr size_t FRAMES = 30;

    using Levels = std::array<float, BANDS>;  // dBFS

    bool isStill() const;
    float meanLevel() const;
    float wanted() const;

    int most_db_;
    int least_db_;
    std::array<Levels, FRAMES> latest_{};  // a ring
    size_t age_ = 0;                       // frames
    int unproven_;                         // frames since steady noise was heard
    float noise_;                          // its level, dBFS
    float depth_;                          // dB
};

}  // namespace engine

#endif
