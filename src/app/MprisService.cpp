#include "app/MprisService.h"

#include "editor/EditorModel.h"

namespace sonvale {

MprisService::MprisService(EditorModel& model, QObject* parent) : QObject(parent), model(model) {}

MprisService::~MprisService() = default;

} // namespace sonvale
