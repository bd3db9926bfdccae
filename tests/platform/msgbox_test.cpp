// MessageBoxA: the replaceable handler, and the default one's answers when
// no terminal is there to ask.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include <orvanest/platform/platform.h>

namespace {

std::string g_seen;

int Recording(HWND, LPCSTR text, LPCSTR caption, UINT type) {
    g_seen = std::string(caption) + "|" + text + "|" + std::to_string(type);
    return IDRETRY;
}

TEST(MessageBoxTest, HandlerReceivesTheBoxAndAnswers) {
    ORVA_MSGBOXHANDLER old = OrvaSetMessageBoxHandler(Recording);
    EXPECT_EQ(MessageBoxA(nullptr, "text", "caption", MB_RETRYCANCEL), IDRETRY);
    EXPECT_EQ(g_seen, "caption|text|5");
    EXPECT_EQ(OrvaSetMessageBoxHandler(old), Recording);
}

TEST(MessageBoxTest, DefaultAnswersAtOnceWithoutATerminal) {
    int saved = dup(STDIN_FILENO);
    int devnull = open("/dev/null", O_RDONLY);
    ASSERT_GE(devnull, 0);
    dup2(devnull, STDIN_FILENO);
    struct Case {
        UINT type;
        int answer;
    } cases[] = {
        {MB_OK, IDOK},          {MB_OKCANCEL, IDCANCEL}, {MB_YESNOCANCEL, IDCANCEL},
        {MB_RETRYCANCEL, IDCANCEL}, {MB_YESNO, IDYES},   {MB_ABORTRETRYIGNORE, IDABORT},
    };
    for (const Case& c : cases) {
        ::testing::internal::CaptureStderr();
        int answer = MessageBoxA(nullptr, "body of the box", "Title", c.type | MB_ICONERROR);
        std::string shown = ::testing::internal::GetCapturedStderr();
        EXPECT_EQ(answer, c.answer) << c.type;
        EXPECT_NE(shown.find("Title"), std::string::npos);
        EXPECT_NE(shown.find("body of the box"), std::string::npos);
    }
    dup2(saved, STDIN_FILENO);
    close(saved);
    close(devnull);
}

}  // namespace
