// SampleData: frames behind their lock, and the players that must be told when it goes.
#include "engine/sample_data.h"

#include <algorithm>

void SamplePlayer::Detach(SampleData* container) {
    if (!container || sample != container) return;
    container->RemovePlayer(this);
    sample = nullptr;
}

SampleData::SampleData() { data.assign(1, 0.0f); }

SampleData::~SampleData() {
    // Detach edits the list, so it runs over a copy.
    std::vector<SamplePlayer*> users;
    {
        std::lock_guard<std::mutex> guard(lock);
        users = players;
    }
    for (SamplePlayer* player : users) player->Detach(this);
}

void SampleData::SetFrames(std::vector<float> frames) {
    if (frames.size() > kMaxSampleFrames) frames.resize(kMaxSampleFrames);
    const auto count = uint32_t(frames.size());
    frames.push_back(0.0f);  // the guard entry
    {
        std::lock_guard<std::mutex> guard(lock);
        data.swap(frames);
        numFrames = count;
    }
    // `frames` now holds the old array and is freed here, outside the lock.
}

std::vector<float> SampleData::Frames() const {
    return std::vector<float>(data.begin(), data.begin() + numFrames);
}

void SampleData::AddPlayer(SamplePlayer* player) {
    std::lock_guard<std::mutex> guard(lock);
    if (std::find(players.begin(), players.end(), player) == players.end()) players.push_back(player);
}

void SampleData::RemovePlayer(SamplePlayer* player) {
    std::lock_guard<std::mutex> guard(lock);
    std::erase(players, player);
}

size_t SampleData::NumPlayers() {
    std::lock_guard<std::mutex> guard(lock);
    return players.size();
}
