// The current set as a table: a row for each item, in the order of the picks.
#pragma once

#include "examples/picker/Session.h"

#include <QAbstractTableModel>

namespace picker {

class SetModel : public QAbstractTableModel {
public:
    enum Column { kPosition, kMain, kSub, kMarker, kPath, kCrossing, kColumns };

    explicit SetModel(const Session& session, QObject* parent = nullptr)
        : QAbstractTableModel(parent), mSession(session) {}

    // Between the two calls, the table is empty and does not touch the set.
    void beginEdit();
    void endEdit();

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;

private:
    std::string text(const GxapSelectSet::ConstIterator& it, int column) const;

    const Session& mSession;
    bool mIsEditing = false;
};

} // namespace picker
