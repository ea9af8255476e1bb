#include "app/BatchRun.h"

#include <chrono>
#include <iostream>

#include "core/VRBatchServices.h"
#include "core/VRLifecycleSignals.h"
#include "core/VRResultController.h"
#include "model/VRAdjustState.h"
#include "platform/Dispatch.h"

namespace app {
namespace {

using Clock = std::chrono::steady_clock;

// Forwards to the process's processor and tells the run what it needs to print: when a pass
// starts, the error the last pass ended with, and whether a pass is still out after a cancel.
class ObservedProcessor final : public VRBatchProcessor {
  public:
    explicit ObservedProcessor(std::shared_ptr<VRBatchProcessor> inner)
        : _inner(std::move(inner)), _state(std::make_shared<State>()) {}

    std::function<void(const VRAssetRef& asset)> started;

    void processAsset(const VRAssetRef& asset, const VXTemplateRef& tpl,
                      const VRAdjustAssetStateRef& adjustState, CGSize size,
                      Progression progression, Completion completion) override {
        ++_state->inFlight;
        if (started) started(asset);
        _inner->processAsset(asset, tpl, adjustState, size, std::move(progression),
                             [state = _state, completion](VRAssetRef result, VRErrorRef error) {
                                 --state->inFlight;
                                 state->lastError = error;
                                 completion(std::move(result), std::move(error));
                             });
    }
    void cancelProcessingAssets() override { _inner->cancelProcessingAssets(); }

    int inFlight() const { return _state->inFlight; }
    const VRErrorRef& lastError() const { return _state->lastError; }

  private:
    struct State {
        int inFlight = 0;
        VRErrorRef lastError;
    };
    std::shared_ptr<VRBatchProcessor> _inner;
    std::shared_ptr<State> _state;
};

class BatchDriver {
  public:
    BatchDriver(std::vector<ProcessInput>& inputs, const BatchRunOptions& options,
                BatchRunView& view, const BatchRunHandlers& handlers)
        : _inputs(inputs), _options(options), _view(view), _handlers(handlers) {}

    BatchRunOutcome run(const VXTemplateRef& tpl, const AdjustStateForAsset& stateFor,
                        const std::atomic<bool>& interrupted) {
        VRBatchServices services = VRBatchServices::standard();
        _processor = std::make_shared<ObservedProcessor>(services.processor);
        _processor->started = [this](const VRAssetRef& asset) { itemStarted(asset); };
        services.processor = _processor;
        // The outcome can't outgrow the inputs: made once, so the run doesn't grow it by halves.
        _outcome.results.reserve(_inputs.size());
        std::vector<VRAssetRef> assets;
        auto adjust = std::make_shared<VRAdjustState>();
        for (const auto& input : _inputs) {
            assets.push_back(input.asset);
            adjust->addState(stateFor(*input.asset), input.asset->objectIdentifier());
        }
        _controller = std::make_unique<VRResultController>(std::move(assets), tpl, adjust, events(),
                                                           std::move(services));
        auto lifecycle = VRLifecycleSignals::install(
            VRLifecycleSignals::handlersForController(*_controller, std::cerr));
        _controller->viewDidAppear();
        for (;;) {
            platform::MainRunLoop::runUntil(
                [&] { return interrupted || _alert || _finished || _stopped; });
            if (interrupted) {
                cancel();
                break;
            }
            if (!_alert) break;
            VRBatchAlert alert = std::move(*_alert);
            _alert.reset();
            answer(alert);
        }
        // "Contact us" sends the report in the background; the process waits for its outcome
        // (and the Warning with the report folder) before it ends.
        platform::MainRunLoop::runUntil([&] { return interrupted || !_reportPending; });
        lifecycle.reset();
        _controller.reset();
        return std::move(_outcome);
    }

  private:
    VRResultControllerEvents events() {
        VRResultControllerEvents events;
        events.progress = [this](std::size_t, double progress) { _view.itemProgress(progress); };
        events.committed = [this](std::size_t, const VRAssetRef& result) {
            if (!_current) return;
            _outcome.results.push_back({result, elapsed(), *_current});
            itemEnded();
        };
        events.buttonState = [this](VRProcessingState state, const std::string&) {
            if (state == VRProcessingState::results) _finished = true;
        };
        events.alert = [this](const VRBatchAlert& alert) {
            switch (alert.kind) {
                case VRBatchAlert::Kind::error:
                case VRBatchAlert::Kind::exceedingMaxSize:
                    _alert = alert;
                    break;
                case VRBatchAlert::Kind::processingRestrictions:
                    // Made in the background; its words are printed on the return.
                    break;
                default:
                    // Words with one button to take note of.
                    _view.note(alert.title + ": " + alert.message +
                               (alert.reportFolder ? "\nThe report: " + *alert.reportFolder : ""));
                    if (alert.answer) alert.answer(0);
                    break;
            }
        };
        // Without a handler of its own the run sends the error report itself.
        if (_handlers.contactUs) events.emailError = _handlers.contactUs;
        events.errorReported = [this](const VRErrorReportOutcome& outcome) {
            if (outcome.sent) _view.note("The report went to the mail program.");
            _reportPending = false;
        };
        return events;
    }

    void itemStarted(const VRAssetRef& asset) {
        std::optional<std::size_t> found;
        for (std::size_t i = _next; i < _inputs.size() && !found; ++i)
            if (_inputs[i].asset && _inputs[i].asset->isEqual(*asset)) found = i;
        // A retry (a resume, or the size limit's smaller size) goes on with the same item.
        if (!found || found == _current) return;
        _current = found;
        _next = *found + 1;
        _itemStart = Clock::now();
        if (_handlers.started) _handlers.started(_inputs[*found]);
        _view.itemStarted(_outcome.results.size() + _outcome.failures.size() + 1,
                          _inputs[*found].name);
    }

    // The item's asset is let go: the controller's list holds the result in its place, or, for a
    // failure, the asset itself while it waits at the cursor.
    void itemEnded() {
        if (_current) release(*_current);
        _current.reset();
        _view.itemEnded();
    }

    void release(std::size_t input) { _inputs[input].asset.reset(); }

    double elapsed() const {
        return std::chrono::duration<double>(Clock::now() - _itemStart).count();
    }

    void answer(const VRBatchAlert& alert) {
        const bool limit = alert.kind == VRBatchAlert::Kind::exceedingMaxSize;
        if (limit) {
            // "Cancel" 0, "Proceed" 1.
            std::size_t button = 0;
            if (_options.proceedOverLimit) {
                button = 1;
            } else if (_options.ask) {
                button = _view.ask(alert.title, alert.message, alert.buttons).value_or(0);
            }
            if (button == 1) return alert.answer(1);
            fail();
            alert.answer(0);
        } else {
            fail();
            // "Contact us" 0, "Ok" 1.
            std::size_t button = _options.reportErrors ? 0 : 1;
            if (_options.ask)
                button = _view.ask(alert.title, alert.message, alert.buttons).value_or(1);
            _reportPending = button == 0 && !_handlers.contactUs;
            alert.answer(button);
        }
        if (_options.keepGoing) {
            clearFailedItem();
        } else {
            _stopped = true;
        }
    }

    // The item at the cursor failed; it stays there, on "Resume", until cleared.
    void fail() {
        if (!_current) return;
        VRErrorRef error = _processor->lastError();
        if (!error) error = VRError::errorWithCode(VRErrorCode::loadFailed);
        const std::size_t input = *_current;
        _outcome.failures.push_back({error, input});
        _current.reset();
        _view.itemEnded();
        // Told before the asset is let go: a library asset's own file explains its failure.
        if (_handlers.failed) _handlers.failed(_inputs[input], *error);
        release(input);
    }

    // The clear rules take the asset at the cursor out of the run and start the next one.
    // The selection alone holds the asset then, so it goes with its removal.
    void clearFailedItem() {
        if (!_controller->pickerView().processingAsset()) return;
        _controller->setSelectedAssets({_controller->pickerView().processingAsset()});
        _controller->_didTapDeleteButton();
    }

    // Cancels the asset in work and waits for the processor to let it go, so that nothing it
    // was writing is left behind.
    void cancel() {
        _outcome.interrupted = true;
        if (_controller->processingState() == VRProcessingState::processing)
            _controller->processingButtonDidChangeState(VRProcessingState::resume);
        platform::MainRunLoop::runUntil([&] { return _processor->inFlight() == 0; },
                                        std::chrono::seconds(60));
        _current.reset();
    }

    std::vector<ProcessInput>& _inputs;
    const BatchRunOptions& _options;
    BatchRunView& _view;
    const BatchRunHandlers& _handlers;
    std::shared_ptr<ObservedProcessor> _processor;
    std::unique_ptr<VRResultController> _controller;
    std::optional<VRBatchAlert> _alert;
    bool _finished = false;
    bool _stopped = false;
    bool _reportPending = false;
    std::optional<std::size_t> _current;
    std::size_t _next = 0;
    Clock::time_point _itemStart = Clock::now();
    BatchRunOutcome _outcome;
};

}  // namespace

BatchRunOutcome runBatch(std::vector<ProcessInput>& inputs, const VXTemplateRef& tpl,
                         const AdjustStateForAsset& stateFor, const BatchRunOptions& options,
                         BatchRunView& view, const BatchRunHandlers& handlers,
                         const std::atomic<bool>& interrupted) {
    BatchDriver driver(inputs, options, view, handlers);
    return driver.run(tpl, stateFor, interrupted);
}

}  // namespace app
