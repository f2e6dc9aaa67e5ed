#pragma once

#include <memory>

#include <QList>
#include <QPromise>
#include <QStringList>

#include "engine/CompressionSettings.h"
#include "engine/ImageCompressor.h"
#include "engine/SessionResult.h"

/// An engine for the batch runner whose batches finish when the test says so.
struct ControlledEngine
{
    struct Call
    {
        QStringList paths;
        CompressionSettings settings;
        ImageCompressor::ProgressCallback progress;
        std::shared_ptr<QPromise<SessionResult>> promise;
    };
    QList<Call> calls;

    /// The function to hand to the runner; records each call.
    auto engine()
    {
        return [this](const QStringList& paths, const CompressionSettings& settings,
                      ImageCompressor::ProgressCallback progress) {
            auto promise = std::make_shared<QPromise<SessionResult>>();
            promise->start();
            calls.append({paths, settings, std::move(progress), promise});
            return promise->future();
        };
    }

    void finish(int call, const SessionResult& result)
    {
        calls[call].promise->addResult(result);
        calls[call].promise->finish();
    }
};
