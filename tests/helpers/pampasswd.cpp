// Changes a user's password through a PAM service the way passwd(1) does for a user: the real
// user id is the user's and the effective one is root's, so the modules treat the change as
// the user's own and enforce their rules (run by real root, pam_pwquality and pam_pwhistory
// only warn unless given enforce_for_root).
//
// Usage: zql-pam-passwd SERVICE USER
// Standard input holds two lines: the current password, then the new one. A prompt that
// mentions the current password gets the first; every other prompt gets the second (so "New
// password:" and "Retype new password:" agree, and retries repeat the same answer).
//
// Every message of the conversation goes to standard output as one line "KIND: TEXT", KIND
// being prompt, echo-prompt, error or info; the last line is "result: " and pam_strerror.
//
// The current password is checked against the shadow entry before PAM runs: pam_unix turns a
// wrong one into the same silent "Authentication token manipulation error" as pam_deny, so
// only this check keeps a mistake in the test apart from a broken stack.
//
// Exit codes:
//   0  the change was accepted (PAM_SUCCESS)
//   1  refused by policy: PAM_AUTHTOK_ERR or PAM_MAXTRIES after a module said why (an error
//      message such as "BAD PASSWORD: ...")
//   2  the current password does not match the shadow entry; PAM did not run
//   3  the stack failed: any other status, or a refusal without any error message (a module
//      that cannot be loaded, a broken service file, pam_deny)
//   4  could not start: unknown user, no shadow entry, setresuid or pam_start failed
//  64  usage

#include <security/pam_appl.h>

#include <crypt.h>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <pwd.h>
#include <shadow.h>
#include <string>
#include <unistd.h>

namespace {
constexpr int ExitAccepted = 0;
constexpr int ExitRefused = 1;
constexpr int ExitCurrentWrong = 2;
constexpr int ExitStackFailed = 3;
constexpr int ExitNotStarted = 4;
constexpr int ExitUsage = 64;

// A stack that keeps asking is cut off: pam_pwquality's retry=3 needs at most a few dozen.
constexpr int MaxPrompts = 32;

struct Answers
{
    std::string current;
    std::string next;
    int prompts = 0;
    bool errorReported = false;
};

const char *kindOf(int style)
{
    switch (style) {
    case PAM_PROMPT_ECHO_OFF:
        return "prompt";
    case PAM_PROMPT_ECHO_ON:
        return "echo-prompt";
    case PAM_ERROR_MSG:
        return "error";
    case PAM_TEXT_INFO:
        return "info";
    default:
        return "other";
    }
}

bool asksForCurrent(const char *prompt)
{
    const std::string text = prompt ? prompt : "";
    return text.find("urrent") != std::string::npos;
}

int converse(int count, const struct pam_message **messages, struct pam_response **responses,
             void *data)
{
    auto *answers = static_cast<Answers *>(data);
    if (count <= 0)
        return PAM_CONV_ERR;
    auto *replies = static_cast<pam_response *>(std::calloc(count, sizeof(pam_response)));
    if (!replies)
        return PAM_BUF_ERR;
    for (int i = 0; i < count; ++i) {
        const pam_message *message = messages[i];
        const char *text = message->msg ? message->msg : "";
        std::printf("%s: %s\n", kindOf(message->msg_style), text);
        if (message->msg_style == PAM_ERROR_MSG)
            answers->errorReported = true;
        if (message->msg_style != PAM_PROMPT_ECHO_OFF && message->msg_style != PAM_PROMPT_ECHO_ON)
            continue;
        if (++answers->prompts > MaxPrompts) {
            for (int j = 0; j < i; ++j)
                std::free(replies[j].resp);
            std::free(replies);
            return PAM_CONV_ERR;
        }
        const std::string &answer = asksForCurrent(text) ? answers->current : answers->next;
        replies[i].resp = strdup(answer.c_str());
    }
    std::fflush(stdout);
    *responses = replies;
    return PAM_SUCCESS;
}

// pam_unix asks for a delay of about two seconds after any failure; a test has no attacker to
// slow down, so the delay is handed to this function and skipped.
void skipFailDelay(int, unsigned, void *) {}

int exitCodeFor(int status, bool errorReported)
{
    switch (status) {
    case PAM_SUCCESS:
        return ExitAccepted;
    case PAM_AUTHTOK_ERR:
    case PAM_MAXTRIES:
        return errorReported ? ExitRefused : ExitStackFailed;
    default:
        return ExitStackFailed;
    }
}

// Whether @p password is the one the shadow entry @p entry holds (the caller is root).
bool matchesShadow(const spwd &entry, const std::string &password)
{
    crypt_data data = {};
    const char *hash = crypt_r(password.c_str(), entry.sp_pwdp, &data);
    return hash && hash[0] != '*' && std::strcmp(hash, entry.sp_pwdp) == 0;
}
} // namespace

int main(int argc, char **argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: zql-pam-passwd SERVICE USER < current-and-new-password\n");
        return ExitUsage;
    }
    const char *service = argv[1];
    const char *user = argv[2];

    Answers answers;
    if (!std::getline(std::cin, answers.current) || !std::getline(std::cin, answers.next)) {
        std::fprintf(stderr, "zql-pam-passwd: expected two lines on standard input\n");
        return ExitUsage;
    }

    const passwd *account = getpwnam(user);
    if (!account) {
        std::fprintf(stderr, "zql-pam-passwd: no user %s\n", user);
        return ExitNotStarted;
    }
    const spwd *shadowEntry = getspnam(user);
    if (!shadowEntry) {
        std::fprintf(stderr, "zql-pam-passwd: no shadow entry for %s\n", user);
        return ExitNotStarted;
    }
    if (!matchesShadow(*shadowEntry, answers.current)) {
        std::printf("result: the current password does not match the shadow entry of %s\n", user);
        return ExitCurrentWrong;
    }
    // As a set-user-id passwd: real user id the user's, effective and saved root's.
    if (setresuid(account->pw_uid, 0, 0) != 0) {
        std::perror("zql-pam-passwd: setresuid");
        return ExitNotStarted;
    }

    const pam_conv conversation = {converse, &answers};
    pam_handle_t *handle = nullptr;
    int status = pam_start(service, user, &conversation, &handle);
    if (status != PAM_SUCCESS) {
        std::printf("result: %s\n", pam_strerror(handle, status));
        return ExitNotStarted;
    }
    using FailDelay = void (*)(int, unsigned, void *);
    const FailDelay failDelay = skipFailDelay;
    pam_set_item(handle, PAM_FAIL_DELAY, reinterpret_cast<const void *>(failDelay));
    status = pam_chauthtok(handle, 0);
    std::printf("result: %s\n", pam_strerror(handle, status));
    pam_end(handle, status);
    return exitCodeFor(status, answers.errorReported);
}
