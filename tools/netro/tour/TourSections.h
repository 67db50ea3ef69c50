// The parts of the tour, one function a class. Tour.cpp holds the table of them.
#pragma once

#include "tour/TourReport.h"

namespace netro::tool {

void TourSockets(TourReport& report);
void TourHttp(TourReport& report);
void TourDns(TourReport& report);
void TourMail(TourReport& report);
void TourTime(TourReport& report);
void TourWhoIs(TourReport& report);
void TourDiagnostics(TourReport& report);

}  // namespace netro::tool
