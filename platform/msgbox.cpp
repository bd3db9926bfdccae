// MessageBoxA on a terminal or a pipe. The box goes to a replaceable handler;
// the default one writes it to standard error and, when standard input is a
// terminal, asks for the answer there. Without a terminal it answers at once:
// Cancel when the box offers it (so that a loop over boxes ends), else the
// box's first button.
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstring>

#include <orvanest/platform/orvaext.h>

namespace {

struct Button {
    char key;
    const char* label;
    int id;
};

// The buttons of each box type, first button first.
int Buttons(UINT type, Button out[3]) {
    switch (type & MB_TYPEMASK) {
    case MB_OKCANCEL:
        out[0] = {'o', "[O]K", IDOK};
        out[1] = {'c', "[C]ancel", IDCANCEL};
        return 2;
    case MB_ABORTRETRYIGNORE:
        out[0] = {'a', "[A]bort", IDABORT};
        out[1] = {'r', "[R]etry", IDRETRY};
        out[2] = {'i', "[I]gnore", IDIGNORE};
        return 3;
    case MB_YESNOCANCEL:
        out[0] = {'y', "[Y]es", IDYES};
        out[1] = {'n', "[N]o", IDNO};
        out[2] = {'c', "[C]ancel", IDCANCEL};
        return 3;
    case MB_YESNO:
        out[0] = {'y', "[Y]es", IDYES};
        out[1] = {'n', "[N]o", IDNO};
        return 2;
    case MB_RETRYCANCEL:
        out[0] = {'r', "[R]etry", IDRETRY};
        out[1] = {'c', "[C]ancel", IDCANCEL};
        return 2;
    default:
        out[0] = {'o', "[O]K", IDOK};
        return 1;
    }
}

int DefaultMessageBox(HWND, LPCSTR text, LPCSTR caption, UINT type) {
    Button buttons[3];
    int count = Buttons(type, buttons);
    std::fprintf(stderr, "== %s ==\n%s\n", caption != nullptr ? caption : "", text != nullptr ? text : "");
    if (!isatty(STDIN_FILENO)) {
        for (int i = 0; i < count; ++i) {
            if (buttons[i].id == IDCANCEL) return IDCANCEL;
        }
        return buttons[0].id;
    }
    for (;;) {
        for (int i = 0; i < count; ++i) std::fprintf(stderr, "%s ", buttons[i].label);
        std::fprintf(stderr, "? ");
        std::fflush(stderr);
        char line[64];
        if (std::fgets(line, sizeof line, stdin) == nullptr) {
            for (int i = 0; i < count; ++i) {
                if (buttons[i].id == IDCANCEL) return IDCANCEL;
            }
            return buttons[0].id;
        }
        char c = line[0] | 0x20;
        if (line[0] == '\n' && count == 1) return buttons[0].id;
        for (int i = 0; i < count; ++i) {
            if (buttons[i].key == c) return buttons[i].id;
        }
    }
}

std::atomic<ORVA_MSGBOXHANDLER> g_handler{nullptr};

}  // namespace

ORVA_MSGBOXHANDLER OrvaSetMessageBoxHandler(ORVA_MSGBOXHANDLER handler) { return g_handler.exchange(handler); }

int MessageBoxA(HWND hWnd, LPCSTR lpText, LPCSTR lpCaption, UINT uType) {
    ORVA_MSGBOXHANDLER handler = g_handler.load();
    if (handler == nullptr) handler = DefaultMessageBox;
    return handler(hWnd, lpText, lpCaption, uType);
}
