#include "rxdiag/rxdiagcontrol.h"

#include <array>
#include <atomic>
#include <thread>

namespace
{

constexpr int MODE_INDEXES = 4;
constexpr int PUMP_SLEEPS = 10;
constexpr std::chrono::milliseconds PUMP_SLEEP{2};

// Constant-initialised and without destructors: units use them while the library is loaded and unloaded, in any order.
constinit std::array<RxDiagControl*, MODE_INDEXES> g_controls{};
constinit std::array<std::atomic<int>, MODE_INDEXES> g_references{};

RxDiagControl& acquireControl(RxDiagMode mode, LoggerX* logX)
{
    const auto index = static_cast<size_t>(RxDiagProto::Mode::index(mode));
    if (g_references[index].fetch_add(1) == 0)
    {
        g_controls[index] =
            new RxDiagControl(rxDiagFeaturesSetNotImplemented, rxDiagMessagePumpHandleNotImplemented, logX);
        g_controls[index]->install(mode);
        g_controls[index]->waitForMessagePump();
        g_controls[index]->updateFeaturesSet();
    }
    return *g_controls[index];
}

} // namespace

// ---- loggers

const std::chrono::steady_clock::time_point RxDiagLoggerProto::s_startTime = std::chrono::steady_clock::now();

RxDiagLoggerProto::RxDiagLoggerProto(std::string tag, RxDiagMode mode, int featuresSet)
    : LoggerX(std::move(tag))
    , m_mode(mode)
    , m_featuresSet(featuresSet)
{
}

int RxDiagLoggerProto::mode() const
{
    return m_mode;
}

void RxDiagLoggerProto::logMessage(Message& message)
{
    using Level = void (RxDiagLoggerProto::*)(Message&);
    static constexpr std::array<Level, 7> LEVELS{
        nullptr, // none
        &RxDiagLoggerProto::_verbose,
        &RxDiagLoggerProto::_debug,
        &RxDiagLoggerProto::_info,
        &RxDiagLoggerProto::_warning,
        &RxDiagLoggerProto::_error,
        &RxDiagLoggerProto::_critical,
    };

    // Deliberate: ids that are no level are written as info, not dropped.
    if (m_mode == DISABLED || message.id() == rxEvent::none)
        message.dispose();
    else
        (this->*(message.id() < LEVELS.size() ? LEVELS[message.id()] : &RxDiagLoggerProto::_info))(message);
}

int RxDiagLoggerProto::featuresSet() const
{
    return m_featuresSet;
}

void RxDiagLoggerProto::setFeaturesSet(int featuresSet)
{
    m_featuresSet = featuresSet;
}

void RxDiagLoggerProto::_verbose(Message& message)
{
    message.dispose();
}

void RxDiagLoggerProto::_debug(Message& message)
{
    message.dispose();
}

void RxDiagLoggerProto::_info(Message& message)
{
    message.dispose();
}

void RxDiagLoggerProto::_warning(Message& message)
{
    message.dispose();
}

void RxDiagLoggerProto::_error(Message& message)
{
    message.dispose();
}

void RxDiagLoggerProto::_critical(Message& message)
{
    message.dispose();
}

RxDiagLoggerLegacy::RxDiagLoggerLegacy(std::string tag, RxDiagMode mode, int featuresSet, LoggerX* logX)
    : RxDiagLoggerProto(std::move(tag), mode, featuresSet)
    , m_logX(logX)
{
}

void RxDiagLoggerLegacy::_verbose(Message& message)
{
    m_logX->verbose(message.text());
    message.dispose();
}

void RxDiagLoggerLegacy::_debug(Message& message)
{
    m_logX->debug(message.text());
    message.dispose();
}

void RxDiagLoggerLegacy::_info(Message& message)
{
    m_logX->info(message.text());
    message.dispose();
}

void RxDiagLoggerLegacy::_warning(Message& message)
{
    m_logX->warning(message.text());
    message.dispose();
}

void RxDiagLoggerLegacy::_error(Message& message)
{
    m_logX->error(message.text());
    message.dispose();
}

void RxDiagLoggerLegacy::_critical(Message& message)
{
    m_logX->critical(message.text());
    message.dispose();
}

// ---- controls

int rxDiagFeaturesSetNotImplemented()
{
    return 0;
}

unsigned rxDiagMessagePumpHandleNotImplemented()
{
    return 1;
}

RxDiagControlProto::RxDiagControlProto(RxDiagFeaturesSetFn featuresSetFn, RxDiagMessagePumpHandleFn messagePumpHandleFn,
                                       LoggerX* logX)
    : m_rxDiagFeaturesSetFn(featuresSetFn)
    , m_rxDiagMessagePumpHandleFn(messagePumpHandleFn)
    , m_logX(logX)
    , m_rxDiagLogger(std::make_unique<RxDiagLoggerProto>("", DISABLED, rxEvent::FS_BASIC))
{
}

void RxDiagControlProto::waitForMessagePump() const
{
    for (int sleeps = 0; m_rxDiagMessagePumpHandleFn() == 0 && sleeps < PUMP_SLEEPS; ++sleeps)
        std::this_thread::sleep_for(PUMP_SLEEP);
}

void RxDiagControlProto::updateFeaturesSet()
{
    m_rxDiagLogger->setFeaturesSet(m_rxDiagFeaturesSetFn());
}

void RxDiagControl::install(RxDiagMode mode)
{
    m_enabled = mode != DISABLED && m_logX;
    if (m_enabled)
        m_rxDiagLogger = std::make_unique<RxDiagLoggerLegacy>("", LEGACY, rxEvent::FS_BASIC, m_logX);
}

// ---- diagnostic objects

int RxDiagProto::Mode::index(RxDiagMode mode)
{
    switch (mode)
    {
    case DISABLED:
        return 0;
    case LEGACY:
        return 1;
    case OSTRAK:
    case DEVELOPMENT:
        return 2;
    }
    return 3; // deliberate: values that are no mode have a control of their own
}

// Deliberate: only the first object of a mode brings its logger, so the lines of all units carry that unit's tag.
RxDiagProto::RxDiagProto(const char*, Function, LoggerX* logX, RxDiagMode mode, FormatFunction)
    : m_requestedMode(mode)
    , m_instantiatedMode(static_cast<RxDiagMode>(acquireControl(mode, logX).logger().mode()))
    , m_rxDiagControl(g_controls[static_cast<size_t>(Mode::index(mode))])
    , info{rxEvent::info, &m_rxDiagControl->logger()}
    , verbose{rxEvent::verbose, &m_rxDiagControl->logger()}
    , debug{rxEvent::debug, &m_rxDiagControl->logger()}
    , warning{rxEvent::warning, &m_rxDiagControl->logger()}
    , error{rxEvent::error, &m_rxDiagControl->logger()}
    , critical{rxEvent::critical, &m_rxDiagControl->logger()}
{
}

RxDiagProto::~RxDiagProto()
{
    if (g_references[static_cast<size_t>(Mode::index(m_requestedMode))].fetch_sub(1) == 1)
    {
        delete m_rxDiagControl;
        m_rxDiagControl = nullptr;
    }
}
