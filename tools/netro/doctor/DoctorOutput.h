// How "netro doctor" shows what it finds. Thread: the loop's.
#pragma once

#include "doctor/Checkup.h"

namespace netro::tool {

/// How the walk has ended.
enum class WalkEnd { Whole, Late, Interrupted };

void PrintDoctorHead(const DoctorRequest& request);
/// False when the output can no longer be written to.
bool PrintFinding(const Finding& finding);
void PrintVerdict(const Finding* verdict, WalkEnd end);
void PrintDoctorJson(const Checkup& checkup, const Finding* verdict, WalkEnd end, double seconds);

}  // namespace netro::tool
