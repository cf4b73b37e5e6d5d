// SPDX-License-Identifier: BSD-3-Clause
// Copyright (c) 2026 the Tresk authors

// Rain gauges whose arrays live in files. A saver above the field writes what was changed before it leaves memory, and
// producers bring it back; so the program finds in its second run what it left in its first.
// usage: own_saver <folder that is there>
#include <tresk/field/CreativeArray.hpp>
#include <tresk/field/Field.hpp>
#include <tresk/field/MemArray.hpp>
#include <tresk/field/TreskType.hpp>

#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using namespace Tresk;
using Gauges = MemArray<1, double>;

constexpr int nGauges = 4;  // of each river

// [file]
/// The file of one array: writes it, and is the producer that brings it back.
class ArrayFile : public Ostrel::CreatorBase<MemBase>::Producer {
 public:
  explicit ArrayFile(const std::filesystem::path& path) : Producer("file"), path_(path) {}

  MemBasePtr produce(const Ostrel::WeakPtr<Ostrel::CreatorBase<MemBase>, Ostrel::Creature>&) override {
    const MemBasePtr data(new Gauges(nGauges, CreatorWeakPtr()));
    std::ifstream in(path_, std::ios::binary);
    in.read(static_cast<char*>(data->getDataPointer()), static_cast<std::streamsize>(data->memsize()));
    if (!in) throw std::runtime_error("cannot read " + path_.string());
    std::cout << "  reading " << path_.filename().string() << "\n";
    return data;
  }
  bool canProduce() override { return std::filesystem::exists(path_); }
  bool isUnderCreation() const override { return false; }

  void write(const MemBase& data) const {
    const std::filesystem::path part(path_.string() + ".part");
    std::ofstream out(part, std::ios::binary);
    out.write(static_cast<const char*>(data.getDataPointer()), static_cast<std::streamsize>(data.memsize()));
    out.close();
    if (!out) throw std::runtime_error("cannot write " + part.string());
    std::filesystem::rename(part, path_);  // the new file as a whole, or still the former one
    std::cout << "  saving " << path_.filename().string() << "\n";
  }

 private:
  std::filesystem::path path_;
};
// [file]

// [saver]
/// Owns fields, and answers when a creator has to let changed data go.
class FileSaver : public Ownable<Field, ChildrenProperties>::Container {
 public:
  bool processOwnership(Ostrel::Intercube& question, const Ostrel::Intercube&) const override {
    const Ostrel::RefPtr<SaveItem<MemBasePtr>> data(question.findInterface(typeid(MemBasePtr)));
    const Ostrel::RefPtr<SaveItem<CreatorPtr>> item(question.findInterface(typeid(CreatorPtr)));
    if (!data || !data->getItem() || !item) return true;  // another question
    const CreativeArrayBase& creator = *item->getItem();
    const Ostrel::RefPtr<ArrayFile> file(Ostrel::findInterface<ArrayFile::Producer>(creator));
    if (!file) return true;  // this creator has no file
    const Ostrel::Ageable written = creator.getDataAge();
    file->write(*data->getItem());
    creator.savedAge = written;  // until the data change again
    return true;
  }
};
// [saver]

// [bind]
/// Binds the array of a file, which is read when somebody asks for it; without a file an array of zeros.
void bind(Field& field, const std::filesystem::path& file) {
  const bool isNew = !std::filesystem::exists(file);
  const MemBasePtr data(isNew ? new Gauges(nGauges, CreatorWeakPtr()) : nullptr);
  const CreatorPtr creator(new CreativeArray(data, Ostrel::Cache::MemCache()));
  creator->addMetaInfo(DynamicSize{nGauges}, getTreskType<double>());
  creator->addInterface(Ostrel::RefPtr<ArrayFile>(new ArrayFile(file)));
  if (!isNew) creator->savedAge = creator->getDataAge();  // what stands in the file need not be saved
  field.setCreator(creator, field.makeFragmentID(file.filename().string()));
  std::cout << file.filename().string() << (isNew ? " is new\n" : " has a file\n");
}
// [bind]

// [change]
/// Adds rain to each gauge of a river.
void addRain(const Field& field, const std::string& river, double rain) {
  const CreatorPtr creator = field.getCreatorByName(river);
  const Ostrel::RefPtr<Gauges> gauges(creator->create(false));
  std::cout << river << " had " << gauges->first() << " mm and gets " << rain << "\n";
  for (int i = 0; i < nGauges; ++i) (*gauges)(i) += rain;
  creator->touch();  // the data have changed
}
// [change]

void forgetAll() {
  const unsigned long long nBytes = Ostrel::Cache::MemCache()->trim(Ostrel::Cache::NoLimit);
  std::cout << "gave back " << nBytes << " bytes\n";
}

}  // namespace

int main(int argc, char** argv) try {
  if (argc != 2 || !std::filesystem::is_directory(argv[1])) {
    std::cerr << "usage: own_saver <folder that is there>\n";
    return 2;
  }
  // [main]
  const std::filesystem::path folder(argv[1]);
  const Ostrel::RefPtr<FileSaver> saver(new FileSaver);  // before the field, so that it outlives it
  const FieldPtr field(new Field);
  field->addOwner(saver);
  bind(*field, folder / "Elbe");
  bind(*field, folder / "Oder");

  addRain(*field, "Elbe", 1.5);
  addRain(*field, "Oder", 2);
  forgetAll();  // both are saved before they go
  addRain(*field, "Oder", 10);
  field->getData(field->getFragmentID("Elbe"));
  forgetAll();  // what was only read goes as it is
  addRain(*field, "Elbe", 0.5);
  std::cout << "the field ends\n";
  // [main]
} catch (const std::exception& error) {
  std::cerr << "own_saver: " << error.what() << "\n";
  return 1;
}
