// The library's UI export: the editor as an X11 UI of both plug-ins, with the idle, show
// and resize interfaces.
#include <lv2/instance-access/instance-access.h>
#include <lv2/ui/ui.h>

#include <cstring>

#include "machine/lv2/vrok_ui.h"

namespace {

lv2::Ui* Of(LV2UI_Handle handle) { return static_cast<lv2::Ui*>(handle); }

LV2UI_Handle Instantiate(const LV2UI_Descriptor*, const char*, const char*, LV2UI_Write_Function write,
                         LV2UI_Controller controller, LV2UI_Widget* widget,
                         const LV2_Feature* const* features) {
    void* parent = nullptr;
    lv2::Plugin* plugin = nullptr;
    const LV2UI_Resize* resize = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        const LV2_Feature& f = *features[i];
        if (!f.URI) continue;
        if (std::strcmp(f.URI, LV2_UI__parent) == 0) parent = f.data;
        if (std::strcmp(f.URI, LV2_INSTANCE_ACCESS_URI) == 0) plugin = static_cast<lv2::Plugin*>(f.data);
        if (std::strcmp(f.URI, LV2_UI__resize) == 0) resize = static_cast<const LV2UI_Resize*>(f.data);
    }
    // The editor edits the plug-in's own document: without the instance there is nothing to show.
    if (!plugin || !widget) return nullptr;
    lv2::Ui* ui = nullptr;
    try {
        ui = new lv2::Ui(*plugin, reinterpret_cast<uintptr_t>(parent), write, controller, resize);
        if (!ui->Open()) {
            delete ui;
            return nullptr;
        }
    } catch (...) {
        delete ui;
        return nullptr;
    }
    *widget = reinterpret_cast<LV2UI_Widget>(ui->Widget());
    return ui;
}

void Cleanup(LV2UI_Handle handle) { delete Of(handle); }

// Knob ports need no echo: the editor's panels read the document.
void PortEvent(LV2UI_Handle, uint32_t, uint32_t, uint32_t, const void*) {}

int Idle(LV2UI_Handle handle) { return Of(handle)->Idle(); }
int Show(LV2UI_Handle handle) { return Of(handle)->Show() ? 0 : 1; }
int Hide(LV2UI_Handle handle) {
    Of(handle)->Hide();
    return 0;
}
int Resize(LV2UI_Feature_Handle handle, int width, int height) {
    Of(static_cast<LV2UI_Handle>(handle))->Resize(width, height);
    return 0;
}

const void* ExtensionData(const char* uri) {
    static const LV2UI_Idle_Interface idle = {Idle};
    static const LV2UI_Show_Interface show = {Show, Hide};
    static const LV2UI_Resize resize = {nullptr, Resize};
    if (std::strcmp(uri, LV2_UI__idleInterface) == 0) return &idle;
    if (std::strcmp(uri, LV2_UI__showInterface) == 0) return &show;
    if (std::strcmp(uri, LV2_UI__resize) == 0) return &resize;
    return nullptr;
}

const LV2UI_Descriptor kDescriptor = {lv2::kUiUri, Instantiate, Cleanup, PortEvent, ExtensionData};

}  // namespace

LV2_SYMBOL_EXPORT const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index) {
    return index == 0 ? &kDescriptor : nullptr;
}
