#pragma once

/* When the library was linked, UTC: "DD.MM.YYYY" and "HH:MM:SS". Written by the build. */
extern const char* const kBuildDate;
extern const char* const kBuildTime;
