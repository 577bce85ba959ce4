#include "policychecker.h"
#include "outputcapture.h"

#include <QJsonArray>
#include <QtTest>

#include <map>
#include <memory>

using ZqlPolicy::ModuleRegistry;
using ZqlPolicy::PolicyChecker;
using ZqlPolicy::PolicyDocument;

namespace {

const QString Alpha = QStringLiteral("alpha");
const QString Beta = QStringLiteral("beta");
const QString Gamma = QStringLiteral("gamma");
const QString Delta = QStringLiteral("delta");

const QString ValueTail = QStringLiteral("; a value that ends up in a line-oriented system file "
                                         "must be one line of printable text");
const QString KeyTail = QStringLiteral("; a key must be printable text");

// What a FakeModule answers, and what the checker asked of it.
struct FakeModuleState
{
    QSet<QString> knownKeys;
    bool available = true;
    bool accepts = true;

    bool constructed = false;
    bool parametersAsked = false;
    bool restrictionsChecked = false;
    QHash<QString, QVariant> restrictedSettings;
    bool systemTouched = false;
};

// A module of the test's own: its answers come from its state, and it records the questions.
class FakeModule : public ModuleInterface
{
public:
    FakeModule(QString name, std::shared_ptr<FakeModuleState> state)
        : m_name(std::move(name))
        , m_state(std::move(state))
    {
        m_state->constructed = true;
    }

    SettingsReply getSettings() override
    {
        m_state->systemTouched = true;
        return {StatusFailure, {}};
    }

    bool setSettings(QHash<QString, QVariant> settings) override
    {
        Q_UNUSED(settings)
        m_state->systemTouched = true;
        return true;
    }

    QString getName() override { return m_name; }

    bool isAvailable() override { return m_state->available; }

    QStringList isParametersCorrect(QSet<QString> parameters) override
    {
        m_state->parametersAsked = true;
        return unknownKeys(std::move(parameters), m_state->knownKeys);
    }

    bool checkRestrictions(const QHash<QString, QVariant> &settings) override
    {
        m_state->restrictionsChecked = true;
        m_state->restrictedSettings = settings;
        return m_state->accepts;
    }

private:
    QString m_name;
    std::shared_ptr<FakeModuleState> m_state;
};

// One refused character: how the checker names it.
struct RefusedCharacter
{
    const char *tag;
    char32_t code;
    const char *named;
    const char *escaped; // as it stands inside the quotes of a message
};

const RefusedCharacter RefusedCharacters[] = {
    {"LF", 0x0A, "U+000A (line feed)", "\\n"},
    {"CR", 0x0D, "U+000D (carriage return)", "\\r"},
    {"TAB", 0x09, "U+0009 (tab)", "\\t"},
    {"NUL", 0x00, "U+0000 (NUL)", "\\u0000"},
    {"ESC", 0x1B, "U+001B (escape)", "\\u001b"},
    {"DEL", 0x7F, "U+007F (delete)", "\\u007f"},
    {"U+0085", 0x85, "U+0085 (next line)", "\\u0085"},
    {"U+2028", 0x2028, "U+2028 (line separator)", "\\u2028"},
    {"U+2029", 0x2029, "U+2029 (paragraph separator)", "\\u2029"},
    {"VT", 0x0B, "U+000B (vertical tab)", "\\u000b"},
    {"FF", 0x0C, "U+000C (form feed)", "\\u000c"},
    {"U+0001", 0x01, "U+0001 (control character)", "\\u0001"},
    {"U+001F", 0x1F, "U+001F (control character)", "\\u001f"},
    {"U+0080", 0x80, "U+0080 (control character)", "\\u0080"},
    {"U+009F", 0x9F, "U+009F (control character)", "\\u009f"},
};

QString character(char32_t code)
{
    return QString::fromUcs4(&code, 1);
}

QString valueProblem(const QString &module, const QString &key, const QString &found)
{
    return QStringLiteral("%1: \"%2\" holds %3").arg(module, key, found) + ValueTail;
}

QString mapKeyProblem(const QString &module, const QString &key, const QString &found)
{
    return QStringLiteral("%1: a key in \"%2\" holds %3").arg(module, key, found) + ValueTail;
}

} // namespace

class PolicyCheckerTest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init();
    void cleanup();

    void acceptedPolicy();
    void emptyPolicy();
    void unknownKeys();
    void veto();
    void problemsInOrder();
    void unavailableModule();
    void problemsAreAppended();
    void selection_data();
    void selection();
    void controlCharacter_data();
    void controlCharacter();
    void controlCharacterFromDocumentText();
    void problemLinesAreSingleLines();
    void acceptedText_data();
    void acceptedText();
    void multiLineText_data();
    void multiLineText();
    void libraryMultiLineTexts();
    void controlCharacterProblemDirectly();

private:
    FakeModuleState &state(const QString &name) { return *m_states.at(name); }
    bool check(const PolicyDocument &document, const QStringList &selection, QStringList *problems,
               QStringList *checked, const QSet<QString> &multiLineTexts = {});

    std::map<QString, std::shared_ptr<FakeModuleState>> m_states;
    ModuleRegistry m_registry;
};

void PolicyCheckerTest::init()
{
    // alpha, beta, gamma, delta: the apply order; each test gets fresh modules.
    const std::pair<QString, QSet<QString>> modules[] = {
        {Alpha,
         {QStringLiteral("count"), QStringLiteral("names"), QStringLiteral("rules"),
          QStringLiteral("text"), QStringLiteral("other"), QStringLiteral("a%1b")}},
        {Beta, {QStringLiteral("level"), QStringLiteral("mode"), QStringLiteral("text")}},
        {Gamma, {QStringLiteral("on")}},
        {Delta, {QStringLiteral("on")}},
    };
    m_states.clear();
    m_registry = ModuleRegistry();
    for (const auto &module : modules) {
        auto moduleState = std::make_shared<FakeModuleState>();
        moduleState->knownKeys = module.second;
        m_states[module.first] = moduleState;
        const QString name = module.first;
        m_registry.add(
            name, [name, moduleState] { return std::make_unique<FakeModule>(name, moduleState); });
    }
}

void PolicyCheckerTest::cleanup()
{
    // The check only asks; it never reads or changes the system.
    for (const auto &module : m_states)
        QVERIFY2(!module.second->systemTouched, qPrintable(module.first));
}

bool PolicyCheckerTest::check(const PolicyDocument &document, const QStringList &selection,
                              QStringList *problems, QStringList *checked,
                              const QSet<QString> &multiLineTexts)
{
    ZqlTest::OutputCapture capture;
    const bool accepted =
        PolicyChecker(m_registry, multiLineTexts).check(document, selection, problems, checked);
    capture.finish();
    // The check prints nothing (the tool prints the problems).
    QTest::qCompare(capture.standardOutput(), QByteArray(), "standardOutput", "", __FILE__,
                    __LINE__);
    QTest::qCompare(capture.standardError(), QByteArray(), "standardError", "", __FILE__, __LINE__);
    return accepted;
}

void PolicyCheckerTest::acceptedPolicy()
{
    // Sections in another order than the registry's.
    PolicyDocument document;
    const QHash<QString, QVariant> gamma{{QStringLiteral("on"), QJsonArray{true, 5}}};
    const QHash<QString, QVariant> alpha{
        {QStringLiteral("count"), 3},
        {QStringLiteral("names"), QStringList{QStringLiteral("a"), QStringLiteral("b")}},
        {QStringLiteral("text"), QString::fromUtf8("Grüße")}};
    document.addSection(Gamma, gamma);
    document.addSection(Alpha, alpha);

    QStringList problems;
    QStringList checked;
    QVERIFY(check(document, {}, &problems, &checked));
    QCOMPARE(problems, QStringList());
    QCOMPARE(checked, (QStringList{Alpha, Gamma}));

    QVERIFY(state(Alpha).parametersAsked);
    QVERIFY(state(Alpha).restrictionsChecked);
    QCOMPARE(state(Alpha).restrictedSettings, alpha);
    QVERIFY(state(Gamma).restrictionsChecked);
    QCOMPARE(state(Gamma).restrictedSettings, gamma);
    // Modules without a section are not even made (a switches module would run the security
    // monitor).
    QVERIFY(state(Alpha).constructed);
    QVERIFY(state(Gamma).constructed);
    QVERIFY(!state(Beta).constructed);
    QVERIFY(!state(Delta).constructed);
}

void PolicyCheckerTest::emptyPolicy()
{
    QStringList problems;
    QStringList checked;
    QVERIFY(check(PolicyDocument(), {}, &problems, &checked));
    QCOMPARE(problems, QStringList());
    QCOMPARE(checked, QStringList());
    for (const auto &module : m_states)
        QVERIFY2(!module.second->constructed, qPrintable(module.first));
}

void PolicyCheckerTest::unknownKeys()
{
    PolicyDocument document;
    document.addSection(Alpha, {{QStringLiteral("zeta"), 1},
                                {QStringLiteral("count"), 2},
                                {QStringLiteral("Beta"), 3},
                                {QStringLiteral("aardvark"), 4},
                                {QString::fromUtf8("äpfel"), 5},
                                {QStringLiteral("names2"), 6}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems, (QStringList{QStringLiteral("alpha: unknown key \"Beta\""),
                                    QStringLiteral("alpha: unknown key \"aardvark\""),
                                    QStringLiteral("alpha: unknown key \"names2\""),
                                    QStringLiteral("alpha: unknown key \"zeta\""),
                                    QString::fromUtf8("alpha: unknown key \"äpfel\"")}));
    QCOMPARE(checked, QStringList{Alpha});
    QVERIFY(state(Alpha).parametersAsked);
}

void PolicyCheckerTest::veto()
{
    state(Beta).accepts = false;
    PolicyDocument document;
    const QHash<QString, QVariant> beta{{QStringLiteral("level"), 7}};
    document.addSection(Beta, beta);
    document.addSection(Alpha, {{QStringLiteral("count"), 1}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems, QStringList{QStringLiteral("beta: the module refuses these settings")});
    QCOMPARE(checked, (QStringList{Alpha, Beta}));
    QVERIFY(state(Beta).restrictionsChecked);
    QCOMPARE(state(Beta).restrictedSettings, beta);
}

void PolicyCheckerTest::problemsInOrder()
{
    // In registry order; within a module: unknown keys, then control characters by key,
    // then the module's veto.
    state(Alpha).accepts = false;
    PolicyDocument document;
    document.addSection(Beta, {{QStringLiteral("bogus"), 1}});
    document.addSection(Alpha, {{QStringLiteral("zz"), 1},
                                {QStringLiteral("text"), QStringLiteral("a\nb")},
                                {QStringLiteral("names"), QStringList{QStringLiteral("\r")}},
                                {QStringLiteral("count"), 2},
                                {QStringLiteral("mm"), QStringLiteral("\t")}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems,
             (QStringList{QStringLiteral("alpha: unknown key \"mm\""),
                          QStringLiteral("alpha: unknown key \"zz\""),
                          valueProblem(Alpha, QStringLiteral("mm"),
                                       QStringLiteral("U+0009 (tab) at character 1")),
                          valueProblem(Alpha, QStringLiteral("names/0"),
                                       QStringLiteral("U+000D (carriage return) at character 1")),
                          valueProblem(Alpha, QStringLiteral("text"),
                                       QStringLiteral("U+000A (line feed) at character 2")),
                          QStringLiteral("alpha: the module refuses these settings"),
                          QStringLiteral("beta: unknown key \"bogus\"")}));
    QCOMPARE(checked, (QStringList{Alpha, Beta}));
}

void PolicyCheckerTest::unavailableModule()
{
    // An unavailable module is refused as a whole: none of its own checks run.
    state(Alpha).available = false;
    state(Alpha).accepts = false;
    PolicyDocument document;
    document.addSection(
        Alpha, {{QStringLiteral("bogus"), 1}, {QStringLiteral("text"), QStringLiteral("a\nb")}});
    document.addSection(Beta, {{QStringLiteral("bogus"), 1}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems,
             (QStringList{QStringLiteral("alpha: the module is not available on this machine "
                                         "(its security mode); leave it out with --only"),
                          QStringLiteral("beta: unknown key \"bogus\"")}));
    QCOMPARE(checked, (QStringList{Alpha, Beta}));
    QVERIFY(!state(Alpha).parametersAsked);
    QVERIFY(!state(Alpha).restrictionsChecked);
    QVERIFY(state(Beta).parametersAsked);
    QVERIFY(state(Beta).restrictionsChecked);
}

void PolicyCheckerTest::problemsAreAppended()
{
    PolicyDocument document;
    document.addSection(Alpha, {{QStringLiteral("count"), 1}});
    QStringList problems{QStringLiteral("an earlier line")};
    QStringList checked{QStringLiteral("earlier")};
    QVERIFY(check(document, {}, &problems, &checked));
    QCOMPARE(problems, QStringList{QStringLiteral("an earlier line")});
    QCOMPARE(checked, (QStringList{QStringLiteral("earlier"), Alpha}));

    state(Alpha).accepts = false;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems, (QStringList{QStringLiteral("an earlier line"),
                                    QStringLiteral("alpha: the module refuses these settings")}));
}

void PolicyCheckerTest::selection_data()
{
    QTest::addColumn<QStringList>("selection");
    QTest::addColumn<QStringList>("checked");
    QTest::addColumn<QStringList>("problems");

    // The document has alpha, beta and gamma; beta refuses its settings; delta has no section.
    const QString betaRefuses = QStringLiteral("beta: the module refuses these settings");
    const QString noDelta = QStringLiteral("delta: the policy has no settings for it");
    QTest::newRow("no selection: every section")
        << QStringList() << QStringList{Alpha, Beta, Gamma} << QStringList{betaRefuses};
    QTest::newRow("alpha and gamma, in registry order")
        << QStringList{Gamma, Alpha} << QStringList{Alpha, Gamma} << QStringList();
    QTest::newRow("only beta") << QStringList{Beta} << QStringList{Beta}
                               << QStringList{betaRefuses};
    QTest::newRow("selected module absent from the document")
        << QStringList{Delta} << QStringList() << QStringList{noDelta};
    QTest::newRow("absent and present")
        << QStringList{Delta, Alpha} << QStringList{Alpha} << QStringList{noDelta};
    QTest::newRow("absent ones first, in selection order")
        << QStringList{Beta, QStringLiteral("omega"), Delta} << QStringList{Beta}
        << QStringList{QStringLiteral("omega: the policy has no settings for it"), noDelta,
                       betaRefuses};
}

void PolicyCheckerTest::selection()
{
    QFETCH(QStringList, selection);
    QFETCH(QStringList, checked);
    QFETCH(QStringList, problems);

    state(Beta).accepts = false;
    PolicyDocument document;
    document.addSection(Gamma, {{QStringLiteral("on"), true}});
    document.addSection(Beta, {{QStringLiteral("level"), 1}});
    document.addSection(Alpha, {{QStringLiteral("count"), 1}});

    QStringList foundProblems;
    QStringList foundChecked;
    QCOMPARE(check(document, selection, &foundProblems, &foundChecked), problems.isEmpty());
    QCOMPARE(foundProblems, problems);
    QCOMPARE(foundChecked, checked);
    // Exactly the checked modules were made and asked.
    for (const auto &module : m_states) {
        QCOMPARE(module.second->constructed, checked.contains(module.first));
        QCOMPARE(module.second->parametersAsked, checked.contains(module.first));
        QCOMPARE(module.second->restrictionsChecked, checked.contains(module.first));
    }
}

void PolicyCheckerTest::controlCharacter_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("problems");

    const QString text = QStringLiteral("text");
    const QString names = QStringLiteral("names");
    const QString rules = QStringLiteral("rules");
    for (const RefusedCharacter &refused : RefusedCharacters) {
        const QString c = character(refused.code);
        const QString named = QString::fromLatin1(refused.named);
        const auto at = [&named](int position) -> QString {
            return named + QStringLiteral(" at character %1").arg(position);
        };

        QTest::addRow("%s in a top-level value", refused.tag)
            << text << QVariant(QString(QStringLiteral("one") + c + QStringLiteral("two")))
            << QStringList{valueProblem(Alpha, text, at(4))};
        QTest::addRow("%s in a nested map value", refused.tag)
            << rules
            << QVariant(QVariantMap{{QStringLiteral("fine"), QStringLiteral("ok")},
                                    {QStringLiteral("inner"), QString(QStringLiteral("x") + c)}})
            << QStringList{valueProblem(Alpha, QStringLiteral("rules/inner"), at(2))};
        QTest::addRow("%s in a list element", refused.tag)
            << names
            << QVariant(QVariantList{QStringLiteral("fine"), 5, QString(c + QStringLiteral("x"))})
            << QStringList{valueProblem(Alpha, QStringLiteral("names/2"), at(1))};
        QTest::addRow("%s in a string list element", refused.tag)
            << names
            << QVariant(QStringList{QStringLiteral("a"), QStringLiteral("b"),
                                    QString(QStringLiteral("cd") + c)})
            << QStringList{valueProblem(Alpha, QStringLiteral("names/2"), at(3))};
        QTest::addRow("%s in a map key", refused.tag)
            << rules
            << QVariant(QVariantMap{{QStringLiteral("fine"), 1},
                                    {QString(QStringLiteral("in") + c + QStringLiteral("ner")), 1}})
            << QStringList{mapKeyProblem(Alpha, rules, at(3))};
        const QString key = QStringLiteral("te") + c + QStringLiteral("xt");
        // Quoted keys are escaped, so that every problem stays one line.
        const QString quotedKey =
            QStringLiteral("\"te") + QString::fromLatin1(refused.escaped) + QStringLiteral("xt\"");
        QTest::addRow("%s in a top-level key", refused.tag)
            << key << QVariant(QStringLiteral("plain"))
            << QStringList{QStringLiteral("alpha: unknown key %1").arg(quotedKey),
                           QStringLiteral("alpha: the key %1 holds %2").arg(quotedKey, at(3)) +
                               KeyTail};
    }

    const QString lineFeed = QStringLiteral("U+000A (line feed)");
    QTest::newRow("deep: a map in a list in a map")
        << rules
        << QVariant(QVariantMap{
               {QStringLiteral("list"),
                QVariantList{QVariantMap{{QStringLiteral("k"), QStringLiteral("ok")}},
                             QVariantMap{{QStringLiteral("k"), QStringLiteral("a\n")}}}}})
        << QStringList{valueProblem(Alpha, QStringLiteral("rules/list/1/k"),
                                    lineFeed + QStringLiteral(" at character 2"))};
    QTest::newRow("characters are counted in code points")
        << text << QVariant(QString::fromUtf8("😀é😀\n"))
        << QStringList{valueProblem(Alpha, text, lineFeed + QStringLiteral(" at character 4"))};
    QTest::newRow("the first refused character is named")
        << text << QVariant(QStringLiteral("a\tb\nc"))
        << QStringList{valueProblem(Alpha, text, QStringLiteral("U+0009 (tab) at character 2"))};
    QTest::newRow("one problem per key, the first in key order")
        << rules
        << QVariant(QVariantMap{{QStringLiteral("b"), QStringLiteral("\n")},
                                {QStringLiteral("a"), QStringLiteral("\r")}})
        << QStringList{valueProblem(Alpha, QStringLiteral("rules/a"),
                                    QStringLiteral("U+000D (carriage return) at character 1"))};
    QTest::newRow("a bad map key before the bad value of an earlier key")
        << rules
        << QVariant(QVariantMap{{QStringLiteral("a"), QStringLiteral("\n")},
                                {QStringLiteral("b\n"), QStringLiteral("x")}})
        << QStringList{valueProblem(Alpha, QStringLiteral("rules/a"),
                                    lineFeed + QStringLiteral(" at character 1"))};
    QTest::newRow("in a hash")
        << rules << QVariant(QVariantHash{{QStringLiteral("inner"), QStringLiteral("\n")}})
        << QStringList{valueProblem(Alpha, QStringLiteral("rules/inner"),
                                    lineFeed + QStringLiteral(" at character 1"))};
    QTest::newRow("key with a percent sign, list element")
        << QStringLiteral("a%1b") << QVariant(QVariantList{QStringLiteral("\n")})
        << QStringList{valueProblem(Alpha, QStringLiteral("a%1b/0"),
                                    lineFeed + QStringLiteral(" at character 1"))};
    QTest::newRow("line feed in the command of an entry table")
        << names
        << QVariant(QVariantList{
               QVariantMap{{QStringLiteral("Exec"), QStringLiteral("app")}},
               QVariantMap{{QStringLiteral("sandboxArgs"), QStringList{QStringLiteral("--a\nb")}}}})
        << QStringList{valueProblem(Alpha, QStringLiteral("names/1/sandboxArgs/0"),
                                    lineFeed + QStringLiteral(" at character 4"))};
    QTest::newRow("string in a QtCore JSON array")
        << names << QVariant(QJsonArray{QStringLiteral("\n")})
        << QStringList{valueProblem(Alpha, QStringLiteral("names/0"),
                                    lineFeed + QStringLiteral(" at character 1"))};
}

void PolicyCheckerTest::controlCharacter()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(QStringList, problems);

    PolicyDocument document;
    document.addSection(Alpha, {{key, value}});
    QStringList found;
    QStringList checked;
    const bool accepted = check(document, {}, &found, &checked);
    // Texts in QtCore JSON values are not walked.
    QVERIFY(!accepted);
    // A list element is named with a second arg(), which fills a "%1" of the key.
    QCOMPARE(found, problems);
    QCOMPARE(checked, QStringList{Alpha});
    // The module is still asked for its verdict.
    QVERIFY(state(Alpha).restrictionsChecked);
}

void PolicyCheckerTest::controlCharacterFromDocumentText()
{
    // Escaped in the JSON text, the characters arrive in the settings all the same.
    const QByteArray text = "{\"format\": \"zql-policy\", \"version\": 1,\n"
                            " \"alpha\": {\"text\": \"root\\u0000\", \"count\": 1},\n"
                            " \"beta\": {\"mode\": [\"a\", \"b\\u2028\"],\n"
                            "          \"level\": {\"x\\ny\": 1}}}\n";
    PolicyDocument document;
    QStringList problems;
    QVERIFY2(document.parse(text, m_registry.names(), &problems),
             qPrintable(problems.join(QLatin1Char('\n'))));
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems,
             (QStringList{valueProblem(Alpha, QStringLiteral("text"),
                                       QStringLiteral("U+0000 (NUL) at character 5")),
                          mapKeyProblem(Beta, QStringLiteral("level"),
                                        QStringLiteral("U+000A (line feed) at character 2")),
                          valueProblem(Beta, QStringLiteral("mode/1"),
                                       QStringLiteral("U+2028 (line separator) at character 2"))}));
    QCOMPARE(checked, (QStringList{Alpha, Beta}));
}

void PolicyCheckerTest::problemLinesAreSingleLines()
{
    // check() promises one line per problem; a key is quoted as it is, so a line feed in a
    // key splits the problem over two lines of the tool's output.
    PolicyDocument document;
    document.addSection(Alpha, {{QStringLiteral("te\nxt"), 1}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!check(document, {}, &problems, &checked));
    QCOMPARE(problems.size(), 2);
    QVERIFY2(!problems.join(QString()).contains(QLatin1Char('\n')),
             qPrintable(problems.join(QStringLiteral(" | "))));
}

void PolicyCheckerTest::acceptedText_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");

    QTest::newRow("ordinary Unicode text")
        << QStringLiteral("text") << QVariant(QString::fromUtf8("Grüße, мир, 世界 😀 ½ – “x”"));
    QTest::newRow("empty string") << QStringLiteral("text") << QVariant(QString());
    QTest::newRow("spaces, no-break space and U+00A0..U+00FF")
        << QStringLiteral("text") << QVariant(QString::fromUtf8("a b\u00a0c ÿ"));
    QTest::newRow("zero-width and bidirectional marks")
        << QStringLiteral("text") << QVariant(QString::fromUtf8("a\u200bb\u200ec"));
    QTest::newRow("printable ASCII")
        << QStringLiteral("text")
        << QVariant(QStringLiteral(" !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   "[\\]^_`abcdefghijklmnopqrstuvwxyz{|}~"));
    QTest::newRow("Unicode in a map key and a list")
        << QStringLiteral("rules")
        << QVariant(QVariantMap{{QString::fromUtf8("schlüssel"),
                                 QStringList{QString::fromUtf8("wert"), QString()}}});
    QTest::newRow("numbers, booleans and null are not text")
        << QStringLiteral("names")
        << QVariant(QVariantList{1, -2.5, true, QVariant(), QJsonArray{true, 10}});
    QTest::newRow("empty containers")
        << QStringLiteral("rules") << QVariant(QVariantMap{{QString(), QVariantList()}});
    QTest::newRow("invalid value") << QStringLiteral("count") << QVariant();
    QTest::newRow("a list of entry tables with non-ASCII names and lists of texts")
        << QStringLiteral("names")
        << QVariant(QVariantList{
               QVariantMap{
                   {QStringLiteral("desktopFileName"), QString::fromUtf8("браузер.desktop")},
                   {QStringLiteral("Name"), QString::fromUtf8("Браузер «Киоск»")},
                   {QStringLiteral("Exec"), QStringLiteral("app --kiosk %u")},
                   {QStringLiteral("OnlyShowIn"), QStringList{QStringLiteral("vela-kiosk")}},
                   {QStringLiteral("sandbox"), true},
                   {QStringLiteral("sandboxArgs"),
                    QStringList{QStringLiteral("--private"), QStringLiteral("--net=none")}},
                   {QStringLiteral("X-VELA-Delay"), 5}},
               QVariantMap{{QStringLiteral("sandboxArgs"), QVariantList()}}});
    QTest::newRow("an empty list of entry tables")
        << QStringLiteral("names") << QVariant(QVariantList());
}

void PolicyCheckerTest::acceptedText()
{
    QFETCH(QString, key);
    QFETCH(QVariant, value);

    PolicyDocument document;
    document.addSection(Alpha, {{key, value}});
    QStringList problems;
    QStringList checked;
    QVERIFY(check(document, {}, &problems, &checked));
    QCOMPARE(problems, QStringList());
    QCOMPARE(checked, QStringList{Alpha});
}

void PolicyCheckerTest::multiLineText_data()
{
    QTest::addColumn<QString>("module");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QStringList>("problems");

    // The multi-line texts are alpha's "text" and beta's "mode".
    const QString text = QStringLiteral("text");
    QTest::newRow("line feeds and tabs accepted")
        << Alpha << text << QVariant(QStringLiteral("line one\n\tline two\n\n")) << QStringList();
    QTest::newRow("only line feeds")
        << Alpha << text << QVariant(QStringLiteral("\n")) << QStringList();
    QTest::newRow("line feeds in a list under the multi-line key")
        << Alpha << text << QVariant(QStringList{QStringLiteral("a\nb"), QStringLiteral("\t")})
        << QStringList();
    QTest::newRow("CR still refused")
        << Alpha << text << QVariant(QStringLiteral("a\r\nb"))
        << QStringList{valueProblem(Alpha, text,
                                    QStringLiteral("U+000D (carriage return) at character 2"))};
    QTest::newRow("NUL still refused")
        << Alpha << text << QVariant(QStringLiteral("a\n\tb") + QChar(0))
        << QStringList{valueProblem(Alpha, text, QStringLiteral("U+0000 (NUL) at character 5"))};
    QTest::newRow("ESC still refused")
        << Alpha << text << QVariant(QStringLiteral("\n\x1b[0m"))
        << QStringList{valueProblem(Alpha, text, QStringLiteral("U+001B (escape) at character 2"))};
    QTest::newRow("line separator still refused")
        << Alpha << text << QVariant(QStringLiteral("a\n") + QChar(0x2028))
        << QStringList{
               valueProblem(Alpha, text, QStringLiteral("U+2028 (line separator) at character 3"))};
    QTest::newRow("a map key under the multi-line key refuses a line feed")
        << Alpha << text << QVariant(QVariantMap{{QStringLiteral("a\nb"), QStringLiteral("x\n")}})
        << QStringList{
               mapKeyProblem(Alpha, text, QStringLiteral("U+000A (line feed) at character 2"))};
    QTest::newRow("another key of the module refuses a line feed")
        << Alpha << QStringLiteral("other") << QVariant(QStringLiteral("a\nb"))
        << QStringList{valueProblem(Alpha, QStringLiteral("other"),
                                    QStringLiteral("U+000A (line feed) at character 2"))};
    QTest::newRow("the same key of another module refuses a line feed")
        << Beta << text << QVariant(QStringLiteral("a\tb"))
        << QStringList{valueProblem(Beta, text, QStringLiteral("U+0009 (tab) at character 2"))};
    QTest::newRow("the other module's multi-line text")
        << Beta << QStringLiteral("mode") << QVariant(QStringLiteral("a\tb\n")) << QStringList();
}

void PolicyCheckerTest::multiLineText()
{
    QFETCH(QString, module);
    QFETCH(QString, key);
    QFETCH(QVariant, value);
    QFETCH(QStringList, problems);

    PolicyDocument document;
    document.addSection(module, {{key, value}});
    QStringList found;
    QStringList checked;
    const QSet<QString> multiLineTexts{QStringLiteral("alpha/text"), QStringLiteral("beta/mode")};
    QCOMPARE(check(document, {}, &found, &checked, multiLineTexts), problems.isEmpty());
    QCOMPARE(found, problems);
    QCOMPARE(checked, QStringList{module});
}

void PolicyCheckerTest::libraryMultiLineTexts()
{
    // Only digsig's templates are a multi-line text, so by default a line feed is refused
    // everywhere else.
    QCOMPARE(PolicyChecker::libraryMultiLineTexts(),
             QSet<QString>{QStringLiteral("digsig/Templates")});
    PolicyDocument document;
    document.addSection(Alpha, {{QStringLiteral("text"), QStringLiteral("a\nb")}});
    QStringList problems;
    QStringList checked;
    QVERIFY(!PolicyChecker(m_registry).check(document, {}, &problems, &checked));
    QCOMPARE(problems, QStringList{valueProblem(Alpha, QStringLiteral("text"),
                                                QStringLiteral("U+000A (line feed) at character "
                                                               "2"))});
}

void PolicyCheckerTest::controlCharacterProblemDirectly()
{
    const QString module = QStringLiteral("any-module");
    QCOMPARE(PolicyChecker::controlCharacterProblem(module, QStringLiteral("k"),
                                                    QStringLiteral("a\nb"), false),
             valueProblem(module, QStringLiteral("k"),
                          QStringLiteral("U+000A (line feed) at character 2")));
    QCOMPARE(PolicyChecker::controlCharacterProblem(module, QStringLiteral("k"),
                                                    QStringLiteral("a\nb"), true),
             QString());
    // The key is never multi-line.
    QCOMPARE(PolicyChecker::controlCharacterProblem(module, QStringLiteral("k\t"),
                                                    QStringLiteral("x"), true),
             QStringLiteral("any-module: the key \"k\\t\" holds U+0009 (tab) at character 2") +
                 KeyTail);
    QCOMPARE(
        PolicyChecker::controlCharacterProblem(module, QStringLiteral("k"), QVariant(42), false),
        QString());
    QCOMPARE(PolicyChecker::controlCharacterProblem(module, QString(), QVariant(), false),
             QString());
}

QTEST_GUILESS_MAIN(PolicyCheckerTest)
#include "policycheckertest.moc"
