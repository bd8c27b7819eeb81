// Seconds of each step of a command.
#pragma once

#include "tools/kt7/json.h"

#include <chrono>
#include <string>
#include <utility>
#include <vector>

namespace kt7::tool {

class StepTimes {
  public:
    /// Runs a step and notes how long it took; hands its result on.
    template <class Step>
    auto time(const char* name, Step&& step) {
        const Stop stop{*this, name};
        return step();
    }

    double of(const std::string& name) const {
        for (const auto& [step, seconds] : steps_)
            if (step == name)
                return seconds;
        return 0.0;
    }

    Json json() const {
        Json object;
        double total = 0.0;
        for (const auto& [step, seconds] : steps_) {
            object[step] = seconds;
            total += seconds;
        }
        object["total"] = total;
        return object;
    }

    /// "read 0.12 s, denoise 3.40 s"
    std::string text() const;

  private:
    using Clock = std::chrono::steady_clock;
    struct Stop {
        StepTimes& times;
        const char* name;
        Clock::time_point begin = Clock::now();
        ~Stop() {
            times.steps_.emplace_back(name,
                                      std::chrono::duration<double>(Clock::now() - begin).count());
        }
    };
    std::vector<std::pair<std::string, double>> steps_;
};

} // namespace kt7::tool
