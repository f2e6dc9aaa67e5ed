#pragma once

/**
 * What the batch runner asks of the screen: the panel under the tray icon and the icon's pulse.
 * The tray manager implements it; tests record the calls.
 */
class BatchDisplay
{
public:
    virtual ~BatchDisplay() = default;

    /// Shows the drop-zone panel anchored to the tray icon.
    virtual void showPanelAnchored() = 0;
    /// Hides the drop-zone panel.
    virtual void hidePanel() = 0;
    /// Starts or stops the icon pulse; stopping restores full opacity.
    virtual void setIconPulsing(bool pulsing) = 0;

protected:
    BatchDisplay() = default;
    BatchDisplay(const BatchDisplay&) = default;
    BatchDisplay& operator=(const BatchDisplay&) = default;
};
