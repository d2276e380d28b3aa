// What the error numbers mean, in words.
#include "kova_host.h"

namespace {
struct error_row {
    int number;
    const char *text;
};
} // namespace

static constexpr error_row error_texts[] = {
    {KO_OK,          "no error"                                                            },
    {KO_EILSEQ,      "bytes that are not a character of the code set"                      },
    {KO_ENULL,       "an argument that must be there is NULL"                              },
    {KO_ENOMEM,      "no memory"                                                           },
    {KO_EINDEX,      "a character index is negative or after the end of the string"        },
    {KO_EPOS,        "a position is inside a character or before the start of the string"  },
    {KO_EEMPTY,      "the text of a number is empty"                                       },
    {KO_EINVAL,      "an incomplete character, a result that does not fit, or a wrong name"},
    {KO_EFILE,       "a data file cannot be opened"                                        },
    {KO_ERANGE,      "an argument is out of range"                                         },
    {KO_EOBJECT,     "a data file is damaged or of another kind"                           },
    {KO_ECODESET,    "the code set does not fit"                                           },
    {KO_EIO,         "reading or writing failed"                                           },
    {KO_E2BIG,       "the room for the result is too small"                                },
    {KO_EFORMAT,     "a format ends early, a time is unreadable, or there is no registry"  },
    {KO_EEOF,        "the stream ends before a character"                                  },
    {KO_EREAD,       "reading failed for an unknown reason"                                },
    {KO_ENOCAT,      "the locale to copy from lacks the category"                          },
    {KO_EHASCAT,     "the locale to copy to has the category already"                      },
    {KO_EMONEY,      "an unknown directive in a money format"                              },
    {KO_ECHARLEN,    "a stored character is longer than the code set allows"               },
    {KO_EDIRECTIVE,  "an unknown directive, or text that does not match one"               },
    {KO_ESECRANGE,   "the second is out of range"                                          },
    {KO_EMINRANGE,   "the minute is out of range"                                          },
    {KO_EHOURRANGE,  "the hour is out of range"                                            },
    {KO_EDAYRANGE,   "the day of the month is out of range"                                },
    {KO_EWDAYRANGE,  "the day of the week is out of range"                                 },
    {KO_EYDAYRANGE,  "the day of the year is out of range"                                 },
    {KO_EMONTHRANGE, "the month is out of range"                                           },
    {KO_EYEARRANGE,  "the year is out of range"                                            },
    {KO_EFRACTION,   "the fraction of a second is wrong"                                   },
    {KO_ESEC,        "the second is wrong"                                                 },
    {KO_EMIN,        "the minute is wrong"                                                 },
    {KO_EHOUR,       "the hour is wrong"                                                   },
    {KO_EDAY,        "the day of the month is wrong"                                       },
    {KO_EWDAY,       "the day of the week is wrong"                                        },
    {KO_EYDAY,       "the day of the year is wrong"                                        },
    {KO_EMONTH,      "the month is wrong"                                                  },
    {KO_EYEAR,       "the year is wrong"                                                   },
    {KO_EERA,        "the era is wrong"                                                    },
    {KO_EPRECISION,  "a \".\" without digits in a directive"                               },
    {KO_EMISMATCH,   "the input differs from the text of the format"                       },
    {KO_EMONTHNAME,  "the name of the month is wrong"                                      },
    {KO_ECALENDAR,   "a locale names an unknown calendar"                                  },
    {KO_EVERSION,    "a data file was written by another version of the compiler"          },
    {KO_ENOSYMBOL,   "a symbolic name is unknown"                                          },
    {KO_ENOLOCALE,   "there is no such locale or data root"                                },
    {KO_ENOCHAR,     "a character that the code set lacks"                                 },
    {KO_ENOCODESET,  "there is no code set of this name"                                   },
    {KO_ENOCONV,     "there is no conversion between these code sets"                      },
};

const char *ko_error_text(int number) {
    for (const error_row &row : error_texts)
        if (row.number == number) return row.text;
    return "an unknown error";
}
