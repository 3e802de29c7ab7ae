// The date styles, the shared month-length table and the name tables.
#include "convert/dates.h"

namespace rv {

// name, input length min/max, year/month/day positions, separator-only form,
// output separator, year digits, field order, blank width.
const DateStyleInfo kDateStyles[kStyleCount + 1] = {
    {"", 0, 0, 0, 0, 0, 0, 0, 0, nullptr, 0, 4, DateOrder::YMD, 8},
    {"Gregorian (mm/dd/yy)", 6, 8, 6, 2, 0, 2, 3, 2, "//", '/', 2, DateOrder::MDY, 8},
    {"Gregorian (mm/dd/yyyy)", 8, 10, 6, 4, 0, 2, 3, 2, "//", '/', 4, DateOrder::MDY, 10},
    {"Julian (yyyy/ddd)", 8, 8, 0, 4, 5, 3, 0, 0, "/", '/', 4, DateOrder::Julian, 8},
    {"dBASE (yyyymmdd)", 8, 8, 0, 4, 4, 2, 6, 2, nullptr, 0, 4, DateOrder::YMD, 8},
    {"DMY (ddmmyy)", 6, 6, 4, 2, 2, 2, 0, 2, nullptr, 0, 2, DateOrder::DMY, 6},
    {"German (dd.mm.yy)", 6, 8, 6, 2, 3, 2, 0, 2, "..", '.', 2, DateOrder::DMY, 8},
    {"German (dd.mm.yyyy)", 8, 10, 6, 4, 3, 2, 0, 2, "..", '.', 4, DateOrder::DMY, 10},
    {"British (dd/mm/yy)", 6, 8, 6, 2, 3, 2, 0, 2, "//", '/', 2, DateOrder::DMY, 8},
    {"British (dd/mm/yyyy)", 8, 10, 6, 4, 3, 2, 0, 2, "//", '/', 4, DateOrder::DMY, 10},
    {"French (dd/mm/yy)", 6, 8, 6, 2, 3, 2, 0, 2, "//", '/', 2, DateOrder::DMY, 8},
    {"French (dd/mm/yyyy)", 8, 10, 6, 4, 3, 2, 0, 2, "//", '/', 4, DateOrder::DMY, 10},
    {"Italian (dd-mm-yy)", 6, 8, 6, 2, 3, 2, 0, 2, "--", '-', 2, DateOrder::DMY, 8},
    {"Italian (dd-mm-yyyy)", 8, 10, 6, 4, 3, 2, 0, 2, "--", '-', 4, DateOrder::DMY, 10},
    {"ENSI (yy.mm.dd)", 6, 8, 0, 2, 3, 2, 6, 2, "..", '.', 2, DateOrder::YMD, 8},
    {"ENSI (yyyy.mm.dd)", 8, 10, 0, 4, 5, 2, 8, 2, "..", '.', 4, DateOrder::YMD, 10},
};

int8_t g_monthDays[13] = {0, 31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

const char* const kMonthNames[13] = {
    "",     "January", "February",  "March",   "April",    "May",     "June",
    "July", "August",  "September", "October", "November", "December"};

const char* const kDayNames[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                  "Thursday", "Friday", "Saturday"};

int DateBlankWidth(uint16_t style) {
  return ValidStyle(style) ? kDateStyles[style].blankWidth : 8;
}

}  // namespace rv
