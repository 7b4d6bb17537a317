// The implementations behind the function tables, one family per file.
// Each reads its arguments from the host, sets its result, and returns its
// status for the call frame (see frame/function_table.h).
#pragma once

namespace vantry::lispfn {

// Connection, context and last error (database/connection.cpp).
int vt_connect();
int vt_mdb();
int vt_close_db();
int vt_compact();
int vt_getVersion();
int vt_lastError();
int vt_resetLastError();

// Table cursors (database/cursors.cpp).
int vt_table();
int vt_current_table();
int vt_current_index();
int vt_top();
int vt_bottom();
int vt_skip();
int vt_getrec();
int vt_seek();
int vt_count();
int vt_close_table();
int vt_closeall_tables();

// Record editing (database/records.cpp).
int vt_append();
int vt_append_withindex();
int vt_replace();
int vt_delete();

// SQL and stored queries (database/sql.cpp).
int vt_sql();
int vt_sql_nil();
int vt_sql_error();
int vt_command();
int vt_query();
int vt_create_query();

// Extended entity data (database/xdata.cpp).
int vt_xdput_list();
int vt_xdget();
int vt_xdget_list();
int vt_xdget_all();

// Tables, fields, indexes, relations, linked tables (database/schema.cpp).
int vt_list_tables();
int vt_structure();
int vt_create_table();
int vt_modify_table();
int vt_rename_table();
int vt_delete_table();
int vt_field_required();
int vt_attributes();
int vt_list_indexes();
int vt_create_index();
int vt_indexUnique();
int vt_indexFields();
int vt_relationExists();
int vt_relationDelete();
int vt_relationCount();
int vt_relationInfo();
int vt_link_table();

// Files and folders (database/files.cpp).
int vt_mkdir();
int vt_rmdir();
int vt_fmove();
int vt_fcopy();
int vt_fcopyIfChanged();
int vt_fdir();
int vt_fdelete();

// File checks, random numbers, beeps, message boxes (database/utility.cpp).
int vt_create_db();
int vt_exist();
int vt_readonly();
int vt_random();
int vt_beep();
int vt_message_beep();
int vt_message_box();

// Curve measurement (drawing/curves.cpp).
int AcDbCurve_getLength();
int AcDbCurve_getPointAtDist();
int AcDbCurve_getClosestPointTo();
int AcDbCurve_getDistAtPoint();

// MText metrics, settings and insertion (drawing/mtext.cpp).
int AcDbMText_actualWidth();
int AcDbMText_actualHeight();
int AcDbMText_ascent();
int AcDbMText_descent();
int AcDbMText_direction();
int AcDbMText_setNormal();
int AcDbMText_setDirection();
int AcDbMText_setMask();
int AcDbMText_insert();
int AcDbMtext_lastLineWidth();

// Extents, colour, polyline fitting, face edges (drawing/entities.cpp).
int AcDbEntity_getGeomExtents();
int AcDbEntity_setColor();
int AcDb2dPolyline_setCurveType();
int AcDbFace_makeEdgeInvisibleAt();

// Annotative scaling (drawing/annotative.cpp), groups (drawing/groups.cpp),
// host leaders (drawing/leader.cpp).
int AcDbAnnotativeObjectPE_setAnnotative();
int SetAnnoBlock();
int ol_ol_GetGroup();
int ol_ol_setGroupSelectable();
int AcDbLeader_create();

// Selection sets and picking (drawing/selection.cpp).
int ssgetC();
int ssgetCP();
int ssgetPK();
int ssgetX_all();
int ssgetX_block();
int ssgetX_circle();
int ssgetX_polyline();
int ol_ol_entsel();

// Point input (drawing/point_input.cpp).
int ol_ol_getPoint();
int ol_ol_getPoint_withKWords();
int ol_ol_getCorner();

// Jigs (drawing/jigs.cpp) and the jig timer (drawing/jig_timer.cpp).
int AcDbBlockReference_Jig();
int RectangleJig();
int ol_ol_lineJig();
int ol_ol_textJig();
int ol_ol_rotateJig();
int ol_ol_multiRotateJig();
int ol_ol_multiMoveJig();
int ol_ol_createJigTimer();
int ol_ol_killJigTimer();

// Numbers (drawing/numbers.cpp).
int asin();
int acos();
int ol_pow();
int ol_atof();
int ol_ol_rand();

// Arc and line intersections (drawing/intersections.cpp).
int ol_ol_intersectArcArc();
int ol_ol_intersectArcLine();
int ol_ol_intersectLineArc();

// The platform: temporary folder, files, network paths, GUIDs, computer
// name, settings keys, screen size (drawing/platform.cpp).
int GetTempPath();
int IsFileReadOnly();
int PathIsNetworkPath();
int CreateCompressedGuidString();
int GetComputerName();
int RegEnumKey();
int GetSystemMetrics_SM_CXSCREEN();
int GetSystemMetrics_SM_CYSCREEN();

// The host's window and status bar, the shell and its dialogs
// (drawing/desktop.cpp).
int acedSetStatusBarProgressMeter();
int acedSetStatusBarProgressMeterPos();
int acedRestoreStatusBar();
int ol_ol_enableAutoCADWindow();
int ol_ol_disableAutoCADWindow();
int ol_ol_sendToBack();
int ol_ol_getAcadWindowText();
int ol_ol_setAcadWindowText();
int ol_ol_SHGetFolderPath();
int ol_ol_shellExecute();
int ol_ol_SHOpenFolderAndSelect();
int ol_ol_showHelp();
int XFolderDialog();
int CFileDialog();

// Layers, colours, plot styles, per-viewport freezing (drawing/layers.cpp).
int ol_ol_createLayer();
int ol_ol_setColor();
int ol_ol_setPlotStyle();
int ol_ol_freezeInViewport();

// The product's leaders, OLLeader (drawing/leaders.cpp).
int ol_ol_leader_insert();
int ol_ol_leader_setPoints();
int ol_ol_leader_setBlock();
int ol_ol_leader_setOffset();
int ol_ol_leader_explode();

// The multiline text editor (drawing/text_editor.cpp).
int ed_editMultilineText();

// Duct fittings and hangers (ducts/: one file per family).
int ol_ol_drawTripleCenter();
int ol_ol_drawTripleTransition();
int ol_ol_drawTripleElbow();
int ol_ol_drawTripleTakeoff();
int ol_ol_drawTripleWye();
int ol_ol_drawTripleSkin();
int ol_ol_getTripleCoord();
int ol_ol_drawHanger();
int ol_ol_tripleUnion();
int ol_ol_explodeSolid();

// Support services (services/: one file per service): downloads, zip
// archives, signatures, error reports.
int DownloadFile();
int CreateZip();
int ExtractZip();
int signString();
int verifyString();
int ol_ol_submitBug();

// The customisation dialogs over the standards tables (standards/).
int ol_ol_LayerSystemOptionsHVAC();
int ol_ol_LayerSystemOptionsPlumb();
int ol_ol_LayerSystemOptionsElec();
int ol_ol_customizeLayers();
int ol_ol_customizeTextStyles();
int ol_ol_customizeLabelGroup();

// User options, the licence, the to-do drawing and safe continue
// (services/user_options.cpp, services/todo.cpp).
int EditUserOptions();
int ol_photo_licenseDialog();
int ol_ol_setToDoDrawing();
int ol_ol_getToDoDrawing();
int ol_ol_executeToDo();
int ol_ol_safeContinue();

}  // namespace vantry::lispfn
