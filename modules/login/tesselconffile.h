#ifndef ZQLMODULES_TESSELCONFFILE_H
#define ZQLMODULES_TESSELCONFFILE_H

#include "zqlmodules_export.h"

#include <QList>
#include <QObject>
#include <QString>

/**
 * Reader and writer of the `login_local` line of "/etc/tessel/tessel.conf".
 *
 * Owns nothing between calls: each operation opens the file, and a write replaces it
 * atomically through a save file, so a failure leaves it as it was. It never creates the file
 * and never touches any other line than the `login_local` ones. Problems come back in the
 * result, never as exceptions.
 */
class ZQLMODULES_EXPORT TesselConfFile : public QObject
{
    Q_OBJECT

public:
    /** Who may log in locally. Values outside the four are possible (an int underneath). */
    enum State : int {
        Unknown = 0, ///< no valid `login_local` line
        All = 1,     ///< everybody
        Admin = 2,   ///< administrators only
        No = 3,      ///< nobody
    };
    Q_ENUM(State)

    /** One failure: the translated message with the file name, and the system's reason. */
    class ZQLMODULES_EXPORT Error
    {
    public:
        /** Builds an error from its @p message and @p detail (empty when there is none). */
        Error(const QString &message, const QString &detail);
        virtual ~Error();
        Error(const Error &) = default;
        Error &operator=(const Error &) = default;

        /** The translated message, with the file name put in. */
        QString message() const;
        /** The system's reason, empty for a missing file. */
        QString detail() const;

    private:
        QString m_message;
        QString m_detail;
    };

    /** What an operation gave: the state read (reads only) and the failures; none on success. */
    class ZQLMODULES_EXPORT OperationResult
    {
    public:
        OperationResult();
        virtual ~OperationResult();
        OperationResult(const OperationResult &) = default;
        OperationResult &operator=(const OperationResult &) = default;

        /** The state read from the file; Unknown when none was read. */
        State state() const;
        /** The failures, in the order they happened; empty when the operation succeeded. */
        QList<Error> errors() const;

        /** Records the state read. */
        void setState(State state);
        /** Adds a failure. */
        void addError(const Error &error);

    private:
        State m_state;
        QList<Error> m_errors;
    };

    /** Builds a reader and writer with an optional @p parent. */
    explicit TesselConfFile(QObject *parent = nullptr);
    ~TesselConfFile() override;

    /** Reads the `login_local` line. @return the state, or the errors. */
    OperationResult getLoginState();

    /**
     * Writes the `login_local` line for @p state; states other than Admin and No write "all".
     * @return the errors, if any (the state field is not used).
     */
    OperationResult setLoginState(State state);

private:
    static State readState(const QString &path);
    static void writeState(const QString &path, State state);
};

#endif // ZQLMODULES_TESSELCONFFILE_H
