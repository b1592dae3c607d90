// The writer of model files, see nolk_model.h: each call of a builder becomes a record.
//   ModelWriterImpl writer;  nolk::TensorX* y = writer.relu(writer.input({1, 3, 8, 8, 3}));  writer.build(&y, 1);
#pragma once

#include <nolk_model.h>

#include <memory>
#include <vector>

#include "inspect/CallBuilder.h"

class RecordWriter;

class ModelWriterImpl final : public CallBuilder<nolk::ModelWriter> {
public:
    explicit ModelWriterImpl(nolk::ModelFileOptions options = {});

    const std::vector<unsigned char>& bytes() const override { return file_; }
    nolk::TensorShape shapeOf(nolk::TensorX* x) override;
    nolk::Runner* build(nolk::TensorX** outputs, int count) override;
    void destroy() override { delete this; }  // for a writer made with new

private:
    // The writer returns pointers to this as TensorX, which is opaque to hosts.
    struct WrittenTensor {
        nolk::TensorShape shape;
        int id;
    };

    nolk::TensorX* record(const Call& call) override;
    void writeFields(RecordWriter& record, const Call& call) const;
    void writeConstant(RecordWriter& record, const nolk::Tensor& tensor) const;
    void checkBatch(const RecordWriter& record, int n) const;
    void appendRecord(const RecordWriter& record);
    int idOf(nolk::TensorX* x) const;

    const nolk::ModelFileOptions options_;
    std::vector<std::unique_ptr<WrittenTensor>> tensors_;  // a tensor's id is its index
    std::vector<unsigned char> records_;
    std::vector<unsigned char> file_;
    int recordCount_ = 0;
    int batch_ = 0;  // the n of the first shape given; unknown while recordCount_ is 0
};
