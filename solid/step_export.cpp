// One STEP file for many solids. Each solid hands over its bodies through its filing text (origin
// and shapes, see SolidBodies::toString), so this needs nothing of the object's inside: the shapes
// are read back, moved from the solid's local origin to world coordinates and gathered in one
// compound.
#include "step_export.h"

#include <BRepTools.hxx>
#include <BRep_Builder.hxx>
#include <IFSelect_ReturnStatus.hxx>
#include <Interface_Static.hxx>
#include <Message.hxx>
#include <Message_Messenger.hxx>
#include <Message_Printer.hxx>
#include <STEPControl_Writer.hxx>
#include <TopoDS_Compound.hxx>
#include <cstdlib>
#include <gp_Trsf.hxx>
#include <sstream>

#include "guarded.h"

namespace vantry::solid {
namespace {

// The translators would report on standard output, which is the host's transcript.
void quiet() {
  static bool done = [] {
    Message::DefaultMessenger()->RemovePrinters(STANDARD_TYPE(Message_Printer));
    return true;
  }();
  (void)done;
}

// Adds the bodies held in one solid's filing text to the compound.
bool addBodies(const std::string &text, BRep_Builder &builder, TopoDS_Compound &all, int &added) {
  std::istringstream in(text);
  std::string word, x, y, z;
  int version = 0;
  size_t count = 0;
  if (!(in >> word >> version >> word >> x >> y >> z >> word >> count)) return false;
  gp_Trsf toWorld;
  toWorld.SetTranslation(gp_Vec(std::strtod(x.c_str(), nullptr), std::strtod(y.c_str(), nullptr),
                                std::strtod(z.c_str(), nullptr)));
  for (size_t i = 0; i < count; ++i) {
    int kind = 0;
    size_t chars = 0;
    if (!(in >> word >> kind >> chars) || in.get() != '\n') return false;
    std::string shapeText(chars, '\0');
    if (!in.read(shapeText.data(), static_cast<std::streamsize>(chars))) return false;
    std::istringstream shapeIn(shapeText);
    TopoDS_Shape shape;
    BRepTools::Read(shape, shapeIn, builder);
    if (shape.IsNull()) return false;
    builder.Add(all, shape.Moved(TopLoc_Location(toWorld)));
    ++added;
  }
  return true;
}

}  // namespace

bool writeStepFile(const std::vector<const SolidBodies *> &solids, const std::string &path,
                   std::string &error) {
  quiet();
  auto write = [&] {
    BRep_Builder builder;
    TopoDS_Compound all;
    builder.MakeCompound(all);
    int added = 0;
    for (const SolidBodies *s : solids)
      if (s && !addBodies(s->toString(), builder, all, added)) {
        error = "a solid's bodies could not be read";
        return false;
      }
    if (added == 0) {
      error = "there is no body to export";
      return false;
    }
    STEPControl_Writer writer;
    Interface_Static::SetCVal("write.step.schema", "AP214IS");
    if (writer.Transfer(all, STEPControl_AsIs) != IFSelect_RetDone) {
      error = "the bodies could not be turned into STEP";
      return false;
    }
    if (writer.Write(path.c_str()) != IFSelect_RetDone) {
      error = "cannot write " + path;
      return false;
    }
    return true;
  };
  if (!guarded(error, "STEP export failed", write)) return false;
  error.clear();
  return true;
}

}  // namespace vantry::solid
