// The drive templates of a scenario.
#ifndef TOOLS_VEXSIM_DRIVE_MODELS_H
#define TOOLS_VEXSIM_DRIVE_MODELS_H

#include <map>
#include <string>

#include "support/json_reader.h"
#include "vexsim/scenario.h"

namespace vexsim {

// Degrees, {"base": degrees, "jitter": degrees} or null.
Temperature read_temperature(const vextools::JsonReader& field);

class DriveModels {
  public:
    // templates: object of name: model; may be absent.
    explicit DriveModels(const vextools::JsonReader& templates);

    // The model of a drive: object's "use" names a template, its "with" changes that.
    DriveModel read(const vextools::JsonReader& object) const;

  private:
    DriveModel apply(const vextools::JsonReader& changes, DriveModel model) const;
    DriveModel find(const vextools::JsonReader& use) const;

    std::map<std::string, DriveModel> models_;
};

}  // namespace vexsim

#endif  // TOOLS_VEXSIM_DRIVE_MODELS_H
