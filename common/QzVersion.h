// This program's version, as every report and log line states it.
#pragma once

constexpr const char* kQzProgramVersion = "9.1.0.833";
