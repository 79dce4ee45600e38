#include "common/cliArgs.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

bool isEnd(const TParser_Arg& row) { return row.shortName == nullptr && row.longName == nullptr; }

bool equals(const char* name, const char* argument) {
    return name != nullptr && std::strcmp(name, argument) == 0;
}

const char* shownName(const TParser_Arg& row) {
    return row.shortName != nullptr ? row.shortName : row.longName;
}

int length(const char* text) { return text != nullptr ? static_cast<int>(std::strlen(text)) : 0; }

TParser_Arg* findRow(TParser_Arg* table, const char* argument) {
    for (TParser_Arg* row = table; !isEnd(*row); ++row) {
        if (equals(row->shortName, argument) || equals(row->longName, argument))
            return row;
    }
    return nullptr;
}

// Stores the option that argv begins with. Returns the number of arguments used, 0 after a failure.
int storeOption(TParser_Arg& row, int argc, char** argv) {
    if (row.target == nullptr) {
        std::printf("error: null memory pointer\n");
        return 0;
    }
    if (row.argType == CLIARG_FLAG) {
        *static_cast<int*>(row.target) = 1;
        row.found = 1;
        return 1;
    }
    if (argc < 2) {
        std::printf("argument missing for option %s\n", argv[0]);
        return 0;
    }
    if (row.argType == CLIARG_STRING)
        *static_cast<char**>(row.target) = argv[1];
    else
        *static_cast<int*>(row.target) = static_cast<int>(std::strtol(argv[1], nullptr, 10));
    row.found = 1;
    return 2;
}

void printSynopsis(const TParser_Arg* table) {
    for (const TParser_Arg* row = table; !isEnd(*row); ++row) {
        if (row->required == 0)
            std::printf("[");
        std::printf("%s", shownName(*row));
        if (row->argType != CLIARG_FLAG)
            std::printf(" %s", row->defaultText != nullptr ? row->defaultText : "");
        std::printf(row->required == 0 ? "] " : " ");
    }
}

void printFullList(const TParser_Arg* table) {
    int longWidth = 0;
    int defaultWidth = 0;
    for (const TParser_Arg* row = table; !isEnd(*row); ++row) {
        longWidth = std::max(longWidth, length(row->longName));
        defaultWidth = std::max(defaultWidth, length(row->defaultText));
    }
    for (const TParser_Arg* row = table; !isEnd(*row); ++row) {
        const char* shortName = row->shortName != nullptr ? row->shortName : "  ";
        const char* longName = row->longName != nullptr ? row->longName : "";
        const bool showDefault = row->argType != CLIARG_FLAG && row->defaultText != nullptr;
        std::printf("    %c %s %-*s %-*s   (%s)\n", row->required != 0 ? '*' : ' ', shortName, longWidth,
                    longName, defaultWidth, showDefault ? row->defaultText : "", row->helpText);
    }
}

}  // namespace

int CliArgs_Parse(TParser_Arg* table, int argc, char** argv) {
    if (argv == nullptr || argc < 0) {
        if (argc == -1)
            printSynopsis(table);
        else if (argc == -2)
            printFullList(table);
        return 0;
    }
    for (int i = 0; i < argc;) {
        TParser_Arg* row = findRow(table, argv[i]);
        if (row == nullptr) {
            std::printf("unknown argument '%s'\n", argv[i]);
            return 0;
        }
        const int used = storeOption(*row, argc - i, argv + i);
        if (used == 0)
            return 0;
        i += used;
    }
    for (const TParser_Arg* row = table; !isEnd(*row); ++row) {
        if (row->required != 0 && row->found == 0) {
            std::printf("missing required option %s\n", shownName(*row));
            return 0;
        }
    }
    return 1;
}

void CliArgs_Usage(char* programName, TParser_Arg* table) {
    std::printf("Usage: %s ", programName);
    CliArgs_Parse(table, -1, nullptr);
    std::printf("\nFull arguments list:\n");
    CliArgs_Parse(table, -2, nullptr);
    std::printf("\n");
}
