#ifndef ZQLMODULES_PAMOPTIONSHANDLER_P_H
#define ZQLMODULES_PAMOPTIONSHANDLER_P_H

#include <QByteArray>
#include <QHash>
#include <QRegExp>
#include <QString>
#include <QStringList>
#include <QVariant>

// The option list of a PAM module line ("... pam_X.so opt opt=N ..."): read into flags and
// switched numbers, or rewritten keeping the options that are not managed here and appending the
// managed ones in a fixed order. The exported account-lockout, complexity and history handlers
// are named wrappers over this one reader and one rewriter; everything in which they differ is a
// column of Shape, and each module is one row (pamoptionshandler.cpp).
namespace PamOptions {

// How a number option in the settings counts as switched on when it is written. An absent key is
// never written under either rule.
enum class WrittenSwitch {
    FirstIsTrue, // any non-empty array whose first element is the JSON boolean true
    ExactPair,   // exactly two elements, the first the JSON boolean true
};

// One PAM module's managed options and how its lines are read and rewritten.
struct Shape
{
    QString readingPattern;      // the module's lines in the live stack
    int readingOptions;          // the capture of readingPattern that holds the option list
    QString rewritingPattern;    // the module's lines in its profile; capture 1 is kept as it is
    int rewritingOptions;        // the capture of rewritingPattern that holds the option list
    QStringList flags;           // options without a number, in the order they are written
    QStringList numbers;         // options with a number, in the order they are written
    QString numberPattern;       // the digits of a number as read from the stack
    QStringList zeroReadsOff;    // number options whose 0 reads as switched off
    WrittenSwitch writtenSwitch; // when a number in the settings is written
};

// pam_tally.so, the account-lockout options.
extern const Shape Tally;
// pam_cracklib.so or pam_pwquality.so, the password-complexity options.
extern const Shape Complexity;
// pam_pwhistory.so, the password-history options (read only).
extern const Shape History;

// Stores the value of every option of @p shape as it reads when no line carries it: flags false,
// numbers [false, 0].
void storeDefaults(const Shape &shape, QHash<QString, QVariant> &result);

// Reading, for each matched line: stores the line's options into @p result and sets @p found.
// Options of other names are ignored. @p line holds the captures of shape.readingPattern.
// @return true, as a reader's handleLine() does.
bool readLine(const Shape &shape, const QRegExp &line, QHash<QString, QVariant> &result,
              bool *found);

// Rewriting, for each matched line: puts into @p content its new text without line end (the text
// up to the module name, the options that @p shape does not manage in their order, then the
// managed ones that @p settings switch on, flags first) and sets @p found. @p line holds the
// captures of shape.rewritingPattern. @return false when there is no content to replace.
bool rewriteLine(const Shape &shape, const QRegExp &line, const QHash<QString, QVariant> &settings,
                 QByteArray *content, bool *found);

} // namespace PamOptions

#endif // ZQLMODULES_PAMOPTIONSHANDLER_P_H
