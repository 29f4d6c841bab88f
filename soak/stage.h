// stage.h - plays a course in a world of its own, and looks after each step whether all holds that must.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "sandbox/server/types.h"
#include "soak/course.h"

namespace brickfall::soak {

struct Outcome {
    struct Failure {
        std::size_t step = 0;  // from 0
        std::string what;
    };
    std::optional<Failure> failure;
    int64_t paid_runs = 0;
    int64_t recorded = 0;
    sandbox::FaultCounts faults;  // met by requests
};

// `program` is what World starts as a cabinet.
Outcome PlayCourse(const std::string& program, const Course& course);

}  // namespace brickfall::soak
