// A table-driven parser for the command line. It prints to standard output: the log is not open yet.
#pragma once

enum {
    CLIARG_STRING = 1,   // target: a char*, which receives the argument's own pointer
    CLIARG_INTEGER = 2,  // target: an int, converted in base 10 without validation; interface only
    CLIARG_FLAG = 3,     // target: an int, set to 1
};

// One option. A table ends with a row whose two names are null.
struct TParser_Arg {
    const char* shortName;  // may be null
    const char* longName;   // may be null
    const char* helpText;
    const char* defaultText;  // shown in the usage, never stored; may be null
    void* target;             // borrowed
    int argType;
    int required;
    int found;  // set to 1 when the option is met
};

// 1 when every argument (the program's name not among them) was an option and no required one is missing;
// else 0, after one message; targets already stored keep their values. With a null argv or a negative argc
// nothing is parsed: -1 prints the synopsis, -2 the full list; the result is 0.
int CliArgs_Parse(TParser_Arg* table, int argc, char** argv);

void CliArgs_Usage(char* programName, TParser_Arg* table);
