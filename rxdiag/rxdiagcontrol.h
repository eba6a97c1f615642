#ifndef RXDIAG_RXDIAGCONTROL_H
#define RXDIAG_RXDIAGCONTROL_H

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <utility>

#include "rxdiag/loggerx.h"

/// The logger of a control before a real one is installed: consumes every message and writes nothing.
class RxDiagLoggerProto : public LoggerX
{
public:
    RxDiagLoggerProto(std::string tag, RxDiagMode mode, int featuresSet);

    int mode() const override;

    /// Hands the message to the operation of its level. Event ids that are no level count as info; `none` and every
    /// message in mode DISABLED are dropped.
    void logMessage(Message& message) override;

    int featuresSet() const override;
    void setFeaturesSet(int featuresSet);

    /// Each consumes the message.
    virtual void _verbose(Message& message);
    virtual void _debug(Message& message);
    virtual void _info(Message& message);
    virtual void _warning(Message& message);
    virtual void _error(Message& message);
    virtual void _critical(Message& message);

protected:
    [[maybe_unused]] static const std::chrono::steady_clock::time_point s_startTime; // nothing reads it yet

private:
    RxDiagMode m_mode;
    int m_featuresSet;
};

/// Turns composed messages into lines of an ordinary logger.
class RxDiagLoggerLegacy : public RxDiagLoggerProto
{
public:
    /// \param logX borrowed, not null; outlives this object
    RxDiagLoggerLegacy(std::string tag, RxDiagMode mode, int featuresSet, LoggerX* logX);

    void _verbose(Message& message) override;
    void _debug(Message& message) override;
    void _info(Message& message) override;
    void _warning(Message& message) override;
    void _error(Message& message) override;
    void _critical(Message& message) override;

private:
    LoggerX* m_logX; // borrowed
};

using RxDiagFeaturesSetFn = int (*)();
using RxDiagMessagePumpHandleFn = unsigned (*)();

int rxDiagFeaturesSetNotImplemented();            ///< \return 0
unsigned rxDiagMessagePumpHandleNotImplemented(); ///< \return 1

/// What all diagnostic objects of one mode share. Made and destroyed by them; not synchronised.
class RxDiagControlProto
{
public:
    /// \param logX borrowed, may be null; outlives the control
    RxDiagControlProto(RxDiagFeaturesSetFn featuresSetFn, RxDiagMessagePumpHandleFn messagePumpHandleFn, LoggerX* logX);

    RxDiagControlProto(const RxDiagControlProto&) = delete;
    RxDiagControlProto& operator=(const RxDiagControlProto&) = delete;

    /// Asks for the pump's handle until it is not 0; gives up after 10 sleeps of 2 ms.
    void waitForMessagePump() const;

    /// Lets the logger have the features of the features-set function.
    void updateFeaturesSet();

    RxDiagLoggerProto& logger() const { return *m_rxDiagLogger; }
    bool enabled() const { return m_enabled; }

protected:
    RxDiagFeaturesSetFn m_rxDiagFeaturesSetFn;
    RxDiagMessagePumpHandleFn m_rxDiagMessagePumpHandleFn;
    LoggerX* m_logX; // borrowed
    std::unique_ptr<RxDiagLoggerProto> m_rxDiagLogger;
    bool m_enabled = false;
};

class RxDiagControl : public RxDiagControlProto
{
public:
    using RxDiagControlProto::RxDiagControlProto;

    /// Enables the control unless the mode is DISABLED or there is no logger. Replaces the logger that messages use.
    void install(RxDiagMode mode);
};

/// The object through which a unit composes log lines:
///
///     static LoggerX g_logger("RiKey");
///     static RxDiagEx rxDiag("RiKey", nullptr, &g_logger, LEGACY, nullptr);
///     rxDiag.warning << "code " << code;
///
/// The line is written at the end of the full expression. All objects of a mode share one control, and with it the
/// logger of the object that was constructed first: its tag stands at the lines of them all, and it must outlive them
/// all. Constructed and destroyed on one thread, at load and unload; the entry points may be used on any thread.
class RxDiagProto
{
public:
    struct Mode
    {
        /// The control that a mode uses: 0..3, 3 for values that are no mode.
        static int index(RxDiagMode mode);
    };

    /// Starts messages of one event id.
    struct EntryPoint
    {
        rxEvent::Id id;
        LoggerXcore* logger;

        template <typename T>
        LoggerXcore::Message operator<<(T&& first) const
        {
            return LoggerXcore::Message(id, logger, std::forward<T>(first));
        }
    };

    using Function = void (*)();
    using FormatFunction = void (*)(std::string& text, rxEvent::Id id);

    /// \param name, function, formatFunction not used
    /// \param logX borrowed; only the first object of a mode passes it on
    RxDiagProto(const char* name, Function function, LoggerX* logX, RxDiagMode mode, FormatFunction formatFunction);
    ~RxDiagProto();

    RxDiagProto(const RxDiagProto&) = delete;
    RxDiagProto& operator=(const RxDiagProto&) = delete;

    RxDiagMode requestedMode() const { return m_requestedMode; }
    RxDiagMode instantiatedMode() const { return m_instantiatedMode; }

private:
    RxDiagMode m_requestedMode;
    RxDiagMode m_instantiatedMode;
    RxDiagControl*& m_rxDiagControl; // this mode's slot among the process-wide controls

public:
    EntryPoint info;
    EntryPoint verbose;
    EntryPoint debug;
    EntryPoint warning;
    EntryPoint error;
    EntryPoint critical;
};

class RxDiagEx : public RxDiagProto
{
public:
    using RxDiagProto::RxDiagProto;
};

#endif
